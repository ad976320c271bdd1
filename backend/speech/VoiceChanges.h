#pragma once

#include <vector>

#include "backend/speech/SpeechDetector.h"
#include "backend/speech/VoiceExtractor.h"

namespace tessivox::backend {

/// A stretch of speech by one voice.
struct VoicedPart {
    SpeechSegment segment;
    Voice voice;
};

/// Parts a segment where one voice takes over from another without a pause: at the moment that the two sides differ
/// most at, as long as they are not one voice (Voice::distance), in a quiet place near by. No part is shorter than 1.2
/// s. `frames` are those of the segment.
std::vector<VoicedPart> partAtVoiceChanges(const SpeechSegment& segment, const std::vector<VoiceFrame>& frames);

}  // namespace tessivox::backend
