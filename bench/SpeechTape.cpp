#include "SpeechTape.h"

#include "SpokenDialogue.h"

namespace tessivox::bench {

SpeechTape::SpeechTape() : microphone_(kFrames), system_(2 * kFrames) {
    std::vector<float> stereo;
    SpokenDialogue().next(kFrames, stereo);
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        microphone_[frame] = stereo[2 * frame];
        system_[2 * frame] = stereo[2 * frame + 1];
        system_[2 * frame + 1] = stereo[2 * frame + 1];
    }
}

audio::AudioBuffer SpeechTape::microphone(std::uint64_t number) const {
    const auto first = number * kMicrophoneFrames % kFrames;
    return {{kRate, 1}, std::span(microphone_).subspan(first, kMicrophoneFrames)};
}

audio::AudioBuffer SpeechTape::system(std::uint64_t number) const {
    const auto first = number * kSystemFrames % kFrames;
    return {{kRate, 2}, std::span(system_).subspan(2 * first, 2 * kSystemFrames)};
}

}  // namespace tessivox::bench
