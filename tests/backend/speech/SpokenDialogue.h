#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "backend/speech/Speakers.h"

namespace tessivox::testing {

using Samples = std::vector<std::int16_t>;

/// What one voice of flite says.
struct Line {
    std::string voice;
    std::string text;
};

/// When a line is spoken, in samples, without the silence around it.
struct Turn {
    Line line;
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Voices that speak in turns, 16 kHz mono.
struct SpokenDialogue {
    Samples samples;
    std::vector<Turn> turns;

    /// A business meeting of eleven turns in so many voices.
    static SpokenDialogue meeting(const std::vector<std::string>& voices, double gapSeconds = 0.5);
    std::string text() const;
    /// How often it is told again to last at least so long.
    SpokenDialogue repeatedTo(double seconds) const;
};

/// Encoded and decoded as the copy is that recordings are uploaded as: AAC of 32 kbit/s.
Samples throughUploadCopy(const Samples& samples);

/// Even noise at all frequencies.
Samples whiteNoise(std::size_t length, double amplitude);
/// Noise that loses 6 dB an octave, like a fan's.
Samples brownNoise(std::size_t length, double amplitude);
/// The speech with noise so many dB below it.
Samples withNoise(const Samples& speech, const Samples& noise, double decibels);

/// Part of the audible speech that lies in a turn of the right speaker, 0 to 1, where each speaker that was found
/// stands for the voice that speaks most in his turns.
double rightlyAttributed(const SpokenDialogue& dialogue, const std::vector<backend::SpeakerTurn>& turns);
/// Part of the audible speech that lies in any segment, 0 to 1.
double found(const SpokenDialogue& dialogue, const std::vector<backend::SpeechSegment>& segments);
/// Seconds of the segments that lie 0.4 s and more from any turn.
double foundInVain(const SpokenDialogue& dialogue, const std::vector<backend::SpeechSegment>& segments);

/// Words to change, leave out and add, divided by the number of words that were said. Letters only, without case.
double wordErrorRate(const std::string& said, const std::string& heard);

}  // namespace tessivox::testing
