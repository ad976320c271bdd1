#include "backend/speech/LabelSpeakers.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "backend/speech/Speakers.h"

namespace tessivox::backend {
namespace {

constexpr std::size_t kMostSpeakers = 26;  ///< as many as there are letters

SpeechSegment samplesOf(const Utterance& utterance, std::size_t all) {
    const auto sample = [all](double seconds) {
        return static_cast<std::size_t>(std::clamp(seconds * Sound::kSampleRate, 0.0, static_cast<double>(all)));
    };
    const auto begin = sample(utterance.start);
    return {begin, std::max(begin, sample(utterance.end))};
}

std::size_t overlap(const SpeechSegment& one, const SpeechSegment& other) {
    const auto begin = std::max(one.begin, other.begin), end = std::min(one.end, other.end);
    return end > begin ? end - begin : 0;
}

/// Who speaks longest in it.
std::size_t mainSpeaker(const SpeechSegment& segment, const std::vector<SpeakerTurn>& turns) {
    std::array<std::size_t, kMostSpeakers> spoken{};
    for (const auto& turn : turns) spoken.at(turn.speaker) += overlap(segment, turn.segment);
    return static_cast<std::size_t>(std::ranges::max_element(spoken) - spoken.begin());
}

}  // namespace

std::string speakerName(std::size_t speaker) { return std::string("Speaker ") + static_cast<char>('A' + speaker); }

void labelSpeakers(const Sound& sound, std::vector<Utterance>& utterances) {
    const auto isNamed = [](const Utterance& utterance) { return !utterance.speaker.empty(); };
    if (std::ranges::any_of(utterances, isNamed)) return;
    std::vector<SpeechSegment> segments;
    for (const auto& utterance : utterances) {
        auto segment = samplesOf(utterance, sound.samples.size());
        // Programs may give times that overlap a little.
        if (!segments.empty()) segment.begin = std::max(segment.begin, segments.back().end);
        if (segment.begin < segment.end) segments.push_back(segment);
    }
    const auto turns = tellSpeakersApart(sound.samples, segments);
    for (auto& utterance : utterances)
        utterance.speaker = speakerName(mainSpeaker(samplesOf(utterance, sound.samples.size()), turns));
}

}  // namespace tessivox::backend
