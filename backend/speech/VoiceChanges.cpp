#include "backend/speech/VoiceChanges.h"

#include <algorithm>
#include <optional>
#include <span>

#include "backend/speech/PowerSpectrum.h"

namespace tessivox::backend {
namespace {

/// Low, since parts that prove to be one voice are joined again.
constexpr double kPrice = 1.5;
constexpr std::size_t kShortest = 120;  ///< frames
constexpr std::size_t kStep = 10;       ///< frames between the moments that are tried
constexpr std::size_t kReach = 500;     ///< frames to either side that are compared
constexpr std::size_t kNear = 25;       ///< frames to either side in which the quiet place lies

using VoiceFrames = std::span<const VoiceFrame>;

Voice voiceOf(VoiceFrames frames) {
    Voice voice;
    for (const VoiceFrame& frame : frames)
        if (frame.standsOut) voice.add(frame.cepstrum);
    return voice;
}

void addIf(Voice& voice, const VoiceFrame& frame) {
    if (frame.standsOut) voice.add(frame.cepstrum);
}

void removeIf(Voice& voice, const VoiceFrame& frame) {
    if (frame.standsOut) voice.remove(frame.cepstrum);
}

/// The frame before and after which the voices differ most, if they are two.
std::optional<std::size_t> change(VoiceFrames frames) {
    std::optional<std::size_t> moment;
    double farthest = 0;
    Voice before, after = voiceOf(frames.first(std::min(kReach, frames.size())));
    for (std::size_t i = 0; i + kShortest <= frames.size(); ++i) {
        if (i >= kShortest && i % kStep == 0) {
            const double distance = Voice::distance(before, after, kPrice);
            if (distance > farthest) moment = i;
            farthest = std::max(farthest, distance);
        }
        addIf(before, frames[i]);
        removeIf(after, frames[i]);
        if (i >= kReach) removeIf(before, frames[i - kReach]);
        if (i + kReach < frames.size()) addIf(after, frames[i + kReach]);
    }
    return moment;
}

std::size_t quietPlace(VoiceFrames frames, std::size_t near) {
    const auto first = frames.begin() + static_cast<std::ptrdiff_t>(near - kNear);
    const auto last = frames.begin() + static_cast<std::ptrdiff_t>(std::min(near + kNear, frames.size()));
    return static_cast<std::size_t>(std::ranges::min_element(first, last, {}, &VoiceFrame::loudness) - frames.begin());
}

void appendParts(std::vector<VoicedPart>& parts, SpeechSegment segment, VoiceFrames frames) {
    const auto moment = change(frames);
    if (!moment) {
        parts.push_back({segment, voiceOf(frames)});
        return;
    }
    const std::size_t place = quietPlace(frames, *moment);
    const std::size_t middle = segment.begin + place * Frames::kStep;
    appendParts(parts, {segment.begin, middle}, frames.first(place));
    appendParts(parts, {middle, segment.end}, frames.subspan(place));
}

}  // namespace

std::vector<VoicedPart> partAtVoiceChanges(const SpeechSegment& segment, const std::vector<VoiceFrame>& frames) {
    std::vector<VoicedPart> parts;
    appendParts(parts, segment, frames);
    return parts;
}

}  // namespace tessivox::backend
