#include "backend/speech/VoiceExtractor.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace tessivox::backend {
namespace {

constexpr std::size_t kSampled = 10;  ///< each so many frames tell what the background is
constexpr double kBackground = 0.1;   ///< a tenth of the time a voice leaves a band alone
constexpr float kLayer = 4;           ///< times the background
constexpr float kFaintest = 1e-9F;    ///< -90 dB of a full-scale sine: says nothing about a voice
constexpr double kKept = 0.6;         ///< of a segment's frames

/// The value that this share of the values does not reach.
float quantile(std::vector<float>& values, double share) {
    if (values.empty()) return 0;
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

float sum(const MelSpectrum::Values& values) { return std::accumulate(values.begin(), values.end(), 0.0F); }

}  // namespace

VoiceExtractor::VoiceExtractor(std::span<const std::int16_t> sound, const std::vector<SpeechSegment>& segments)
    : sound_(sound) {
    std::array<std::vector<float>, MelSpectrum::kSize> powers;
    for (const SpeechSegment& segment : segments)
        for (const MelSpectrum::Values& values : spectra(segment, kSampled))
            for (std::size_t i = 0; i < values.size(); ++i) powers[i].push_back(values[i]);
    for (std::size_t i = 0; i < layer_.size(); ++i) layer_[i] = kLayer * quantile(powers[i], kBackground) + kFaintest;
    for (std::size_t c = 0; c < cosines_.size(); ++c)
        for (std::size_t i = 0; i < MelSpectrum::kSize; ++i)
            cosines_[c][i] = static_cast<float>(
                std::cos(std::numbers::pi * double(c + 1) * (double(i) + 0.5) / double(MelSpectrum::kSize)));
}

std::vector<VoiceFrame> VoiceExtractor::frames(const SpeechSegment& segment) {
    std::vector<VoiceFrame> frames;
    std::vector<float> sums;
    for (const MelSpectrum::Values& powers : spectra(segment, 1)) {
        const MelSpectrum::Values logarithms = loudness(powers);
        sums.push_back(sum(logarithms));
        frames.push_back({cepstrum(logarithms), sums.back(), false});
    }
    const float least = quantile(sums, 1 - kKept);
    for (VoiceFrame& frame : frames) frame.standsOut = frame.loudness >= least;
    return frames;
}

/// Of each frame, or of each so many.
std::vector<MelSpectrum::Values> VoiceExtractor::spectra(const SpeechSegment& segment, std::size_t step) {
    const auto speech = segment.of(sound_);
    std::vector<MelSpectrum::Values> values;
    for (std::size_t frame = 0; frame < Frames::count(speech.size()); frame += step)
        values.push_back(spectrum_.of(speech.subspan(frame * Frames::kStep, Frames::kLength)));
    return values;
}

MelSpectrum::Values VoiceExtractor::loudness(const MelSpectrum::Values& powers) const {
    MelSpectrum::Values values;
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = std::log(1 + powers[i] / layer_[i]);
    return values;
}

Voice::Values VoiceExtractor::cepstrum(const MelSpectrum::Values& loudness) const {
    Voice::Values values;
    for (std::size_t c = 0; c < values.size(); ++c)
        values[c] = std::inner_product(loudness.begin(), loudness.end(), cosines_[c].begin(), 0.0F);
    return values;
}

}  // namespace tessivox::backend
