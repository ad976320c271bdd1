#include "backend/speech/MelSpectrum.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace tessivox::backend {
namespace {

constexpr double kLowest = 100;    ///< Hz
constexpr double kHighest = 6800;  ///< Hz; encoders drop what is above

double toMel(double hertz) { return 2595 * std::log10(1 + hertz / 700); }
double fromMel(double mel) { return 700 * (std::pow(10, mel / 2595) - 1); }

/// Corners of the triangles: each begins at the top of the one before.
double corner(std::size_t index) {
    const double width = (toMel(kHighest) - toMel(kLowest)) / (MelSpectrum::kSize + 1);
    return fromMel(toMel(kLowest) + width * static_cast<double>(index));
}

}  // namespace

MelSpectrum::MelSpectrum() {
    for (std::size_t i = 0; i < kSize; ++i) {
        const double left = corner(i), top = corner(i + 1), right = corner(i + 2);
        triangles_[i].first = static_cast<std::size_t>(std::ceil(left / PowerSpectrum::kBinWidth));
        for (std::size_t bin = triangles_[i].first; double(bin) * PowerSpectrum::kBinWidth < right; ++bin) {
            const double hertz = double(bin) * PowerSpectrum::kBinWidth;
            const double weight = std::min((hertz - left) / (top - left), (right - hertz) / (right - top));
            triangles_[i].weights.push_back(static_cast<float>(weight));
        }
    }
}

MelSpectrum::Values MelSpectrum::of(std::span<const std::int16_t> frame) {
    const auto power = spectrum_.of(frame);
    Values values;
    for (std::size_t i = 0; i < kSize; ++i) {
        const std::vector<float>& weights = triangles_[i].weights;
        values[i] = std::inner_product(weights.begin(), weights.end(), &power[triangles_[i].first], 0.0F);
    }
    return values;
}

}  // namespace tessivox::backend
