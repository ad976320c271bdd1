#include "backend/speech/BandLevels.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "backend/speech/PowerSpectrum.h"

namespace tessivox::backend {
namespace {

using Powers = std::array<float, BandLevels::kBands>;
/// Frames to either side that a level is the mean of.
constexpr std::size_t kReach = 2;

std::size_t bin(int hertz) { return static_cast<std::size_t>(std::lround(hertz / PowerSpectrum::kBinWidth)); }

Powers bandPowers(std::span<const float, PowerSpectrum::kBins> spectrum) {
    Powers powers{};
    for (std::size_t band = 0; band < powers.size(); ++band) {
        const std::size_t begin = bin(BandLevels::kEdges[band]);
        const std::size_t end = bin(BandLevels::kEdges[band + 1]);
        powers[band] = std::accumulate(&spectrum[begin], &spectrum[end], 0.0F);
    }
    return powers;
}

BandLevels::Level toLevel(float power) {
    const double decibels = 10 * std::log10(static_cast<double>(power) + 1e-10);
    return BandLevels::level(std::clamp(decibels, -100.0, 27.0));
}

}  // namespace

BandLevels::BandLevels(std::span<const std::int16_t> samples) : levels_(Frames::count(samples.size())) {
    PowerSpectrum spectrum;
    std::array<Powers, 2 * kReach + 1> recent{};
    for (std::size_t frame = 0; frame < levels_.size() + kReach; ++frame) {
        Powers& newest = recent[frame % recent.size()];
        newest = {};
        if (frame < levels_.size())
            newest = bandPowers(spectrum.of(samples.subspan(frame * Frames::kStep, Frames::kLength)));
        if (frame < kReach) continue;
        for (std::size_t band = 0; band < kBands; ++band) {
            float sum = 0;
            for (const Powers& powers : recent) sum += powers[band];
            levels_[frame - kReach][band] = toLevel(sum / static_cast<float>(recent.size()));
        }
    }
}

int BandLevels::loudness(std::size_t frame) const {
    return std::accumulate(levels_[frame].begin(), levels_[frame].end(), 0);
}

}  // namespace tessivox::backend
