#pragma once

#include <cstdint>
#include <vector>

#include "audio/AudioBuffer.h"

namespace tessivox::bench {

/// A minute of a conversation in memory, as a microphone and an output would deliver it for ever: one voice in mono
/// buffers of 1024 frames, the other in stereo buffers of 960 frames, both at 48 kHz.
class SpeechTape {
public:
    static constexpr int kRate = 48000;
    static constexpr std::uint64_t kMicrophoneFrames = 1024;
    static constexpr std::uint64_t kSystemFrames = 960;

    SpeechTape();

    audio::AudioBuffer microphone(std::uint64_t number) const;
    audio::AudioBuffer system(std::uint64_t number) const;
    /// The whole tape, for programs that read files.
    const std::vector<float>& microphoneSamples() const { return microphone_; }
    const std::vector<float>& systemSamples() const { return system_; }

private:
    static constexpr std::uint64_t kFrames = kMicrophoneFrames * kSystemFrames * 3;  ///< holds whole buffers of both
    std::vector<float> microphone_;
    std::vector<float> system_;
};

}  // namespace tessivox::bench
