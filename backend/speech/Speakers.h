#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backend/speech/SpeechDetector.h"

namespace tessivox::backend {

/// What one person says without a pause.
struct SpeakerTurn {
    SpeechSegment segment;
    std::size_t speaker = 0;  ///< 0 is whoever speaks first, 1 the next, at most 5
};

/// Who speaks in these segments of 16 kHz sound, by voice alone. Segments in which several people speak are parted.
/// Voices are told apart within ten minutes, then between them; one with less than a twentieth of the speech counts as
/// the voice that it resembles most. The same sound gives the same speakers.
std::vector<SpeakerTurn> tellSpeakersApart(std::span<const std::int16_t> sound,
                                           const std::vector<SpeechSegment>& segments);

}  // namespace tessivox::backend
