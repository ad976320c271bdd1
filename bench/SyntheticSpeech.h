#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace tessivox::bench {

/// A conversation that an encoder finds about as hard as a real one: two voices that take turns, syllables, pauses,
/// hiss of consonants, a little noise of a room. Each is a harmonic voice through formants that wander. Always the
/// same.
class SyntheticSpeech {
public:
    explicit SyntheticSpeech(int sampleRate) : sampleRate_(sampleRate) {}
    /// Replaces `stereo` by the next frames, the first voice left, the second right.
    void next(std::size_t frames, std::vector<float>& stereo);

private:
    /// One resonance of the mouth.
    struct Formant {
        double frequency = 0;
        double first = 0;
        double second = 0;
        double filter(double input, double sampleRate);
    };
    struct Voice {
        double pitch = 0;
        double phase = 0;
        double syllableLeft = 0;  ///< seconds
        bool isSpeaking = false;
        bool isHiss = false;
        double loudness = 0;
        std::array<Formant, 3> formants{};
    };

    double random();
    float sample(Voice& voice, bool hasTurn);
    void beginSyllable(Voice& voice, bool hasTurn);

    int sampleRate_;
    std::uint64_t frame_ = 0;
    std::uint64_t seed_ = 1;
    std::array<Voice, 2> voices_{};
};

}  // namespace tessivox::bench
