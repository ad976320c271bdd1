#include "backend/speech/Speakers.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "backend/speech/Agglomeration.h"
#include "backend/speech/VoiceChanges.h"
#include "backend/speech/VoiceExtractor.h"

namespace tessivox::backend {
namespace {

constexpr std::size_t kWindow = 10 * 60 * 16000;  ///< samples
constexpr std::size_t kLongestTurn = 25 * 16000;  ///< samples
constexpr double kLeastShare = 0.05;
constexpr std::size_t kMostSpeakers = 6;

std::vector<VoicedPart> partsOf(std::span<const std::int16_t> sound, const std::vector<SpeechSegment>& segments) {
    VoiceExtractor extractor(sound, segments);
    std::vector<VoicedPart> parts;
    for (const SpeechSegment& segment : segments)
        std::ranges::move(partAtVoiceChanges(segment, extractor.frames(segment)), std::back_inserter(parts));
    return parts;
}

std::vector<VoiceCluster> mergedAlike(std::vector<VoiceCluster> clusters) {
    Agglomeration agglomeration(std::move(clusters));
    agglomeration.mergeAlike();
    return agglomeration.take();
}

/// The voices of each ten minutes, one after the other.
std::vector<VoiceCluster> voicesByWindow(const std::vector<VoicedPart>& parts) {
    std::vector<VoiceCluster> all;
    for (std::size_t next = 0; next < parts.size();) {
        const std::size_t end = (parts[next].segment.begin / kWindow + 1) * kWindow;
        std::vector<VoiceCluster> window;
        for (; next < parts.size() && parts[next].segment.begin < end; ++next)
            window.push_back({parts[next].voice, {next}});
        std::ranges::move(mergedAlike(std::move(window)), std::back_inserter(all));
    }
    return all;
}

/// The speaker of each part, numbered in the order of their first words.
std::vector<std::size_t> byAppearance(const std::vector<VoiceCluster>& clusters, std::size_t parts) {
    std::vector<std::size_t> clusterOf(parts);
    for (std::size_t cluster = 0; cluster < clusters.size(); ++cluster)
        for (const std::size_t part : clusters[cluster].parts) clusterOf[part] = cluster;
    constexpr std::size_t kUnnumbered = std::numeric_limits<std::size_t>::max();
    std::vector<std::size_t> numbers(clusters.size(), kUnnumbered);
    std::size_t count = 0;
    for (std::size_t& entry : clusterOf) {
        if (numbers[entry] == kUnnumbered) numbers[entry] = count++;
        entry = numbers[entry];
    }
    return clusterOf;
}

/// Parts of one speaker that touch were parted in vain; words are recognised better in one piece.
bool continues(const SpeakerTurn& turn, const SpeakerTurn& next) {
    return turn.speaker == next.speaker && turn.segment.end == next.segment.begin &&
           next.segment.end - turn.segment.begin <= kLongestTurn;
}

}  // namespace

std::vector<SpeakerTurn> tellSpeakersApart(std::span<const std::int16_t> sound,
                                           const std::vector<SpeechSegment>& segments) {
    const std::vector<VoicedPart> parts = partsOf(sound, segments);
    Agglomeration voices(voicesByWindow(parts));
    voices.mergeAlike();
    voices.foldSmallerThan(kLeastShare);
    voices.mergeDownTo(kMostSpeakers);
    const std::vector<std::size_t> speakers = byAppearance(voices.take(), parts.size());
    std::vector<SpeakerTurn> turns;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const SpeakerTurn turn{parts[i].segment, speakers[i]};
        if (!turns.empty() && continues(turns.back(), turn))
            turns.back().segment.end = turn.segment.end;
        else
            turns.push_back(turn);
    }
    return turns;
}

}  // namespace tessivox::backend
