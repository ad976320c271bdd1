#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessivox::backend {

/// A stretch of sound in which somebody speaks, in samples.
struct SpeechSegment {
    std::size_t begin = 0;
    std::size_t end = 0;

    std::size_t length() const { return end - begin; }
    std::span<const std::int16_t> of(std::span<const std::int16_t> sound) const {
        return sound.subspan(begin, length());
    }
};

/// Where somebody speaks in 16 kHz sound, in order and without overlap. A frame is speech if the bands of the voice
/// rise, on average, far enough above their noise floors; a steady sound is its own floor and never does. Pauses under
/// 300 ms belong to the speech, each segment has 120 ms before and 160 ms after it, and none is longer than 25 s:
/// longer ones are parted where they are quietest. The same sound gives the same segments. Takes some 10 bytes of
/// memory a frame.
std::vector<SpeechSegment> detectSpeech(std::span<const std::int16_t> samples);

}  // namespace tessivox::backend
