#include "SyntheticSpeech.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace tessivox::bench {
namespace {

constexpr std::uint64_t kTurnSeconds = 7;
constexpr double kRoomNoise = 0.0005;

}  // namespace

double SyntheticSpeech::Formant::filter(double input, double sampleRate) {
    // A two-pole resonator with a band of about 80 Hz.
    const double radius = std::exp(-std::numbers::pi * 80 / sampleRate);
    const double turn = 2 * radius * std::cos(2 * std::numbers::pi * frequency / sampleRate);
    const double output = input * (1 - radius) + turn * first - radius * radius * second;
    second = first;
    first = output;
    return output;
}

double SyntheticSpeech::random() {
    seed_ = seed_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(seed_ >> 11) * 0x1p-53;
}

void SyntheticSpeech::beginSyllable(Voice& voice, bool hasTurn) {
    const double dice = random();
    voice.isSpeaking = hasTurn && dice > 0.2;
    voice.isHiss = dice > 0.85;
    voice.syllableLeft = voice.isHiss ? 0.08 : 0.12 + 0.2 * random();
    voice.pitch = (&voice == &voices_[0] ? 110 : 190) * (0.85 + 0.3 * random());
    voice.formants[0].frequency = 300 + 500 * random();
    voice.formants[1].frequency = 900 + 1500 * random();
    voice.formants[2].frequency = 2500 + 1000 * random();
}

float SyntheticSpeech::sample(Voice& voice, bool hasTurn) {
    voice.syllableLeft -= 1.0 / sampleRate_;
    if (voice.syllableLeft <= 0) beginSyllable(voice, hasTurn);
    voice.loudness += ((voice.isSpeaking ? 1.0 : 0.0) - voice.loudness) * 100 / sampleRate_;
    voice.phase += voice.pitch / sampleRate_;
    voice.phase -= std::floor(voice.phase);
    const double noise = random() - 0.5;
    const double source = voice.isHiss ? noise : (voice.phase < 0.1 ? 1.0 : -0.1) + 0.05 * noise;
    double sound = voice.isHiss ? 0.1 * noise : 0.0;
    for (auto& formant : voice.formants) sound += formant.filter(source, sampleRate_);
    return static_cast<float>(0.25 * voice.loudness * sound + kRoomNoise * (random() - 0.5));
}

void SyntheticSpeech::next(std::size_t frames, std::vector<float>& stereo) {
    stereo.resize(frames * 2);
    for (std::size_t i = 0; i < frames; ++i, ++frame_) {
        const bool isFirstsTurn = frame_ / (kTurnSeconds * static_cast<std::uint64_t>(sampleRate_)) % 2 == 0;
        stereo[i * 2] = sample(voices_[0], isFirstsTurn);
        stereo[i * 2 + 1] = sample(voices_[1], !isFirstsTurn);
    }
}

}  // namespace tessivox::bench
