#include "backend/speech/PowerSpectrum.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>

namespace tessivox::backend {

PowerSpectrum::PowerSpectrum() {
    using std::numbers::pi;
    for (std::size_t i = 0; i < window_.size(); ++i)
        window_[i] = static_cast<float>(0.54 - 0.46 * std::cos(2 * pi * double(i) / double(window_.size() - 1)));
    const float sine = std::accumulate(window_.begin(), window_.end(), 0.0F) / 2 * 32768;
    for (float& weight : window_) weight /= sine;
    for (std::size_t k = 0; k < kHalf; ++k) {
        const double angle = -2 * pi * double(k) / kSize;
        turns_[k] = {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
    }
    constexpr int kBits = std::bit_width(kHalf) - 1;
    for (std::size_t k = 0; k < kHalf; ++k) {
        std::size_t mirrored = 0;
        for (int bit = 0; bit < kBits; ++bit) mirrored |= (k >> bit & 1) << (kBits - 1 - bit);
        reversed_[k] = static_cast<std::uint16_t>(mirrored);
    }
}

std::span<const float, PowerSpectrum::kBins> PowerSpectrum::of(std::span<const std::int16_t> frame) {
    load(frame);
    transform();
    separate();
    return power_;
}

/// Even samples become real parts and odd ones imaginary parts, so that half the transform does.
void PowerSpectrum::load(std::span<const std::int16_t> frame) {
    values_.fill({});
    const std::size_t length = std::min(frame.size(), window_.size()) & ~std::size_t{1};
    for (std::size_t i = 0; i < length; i += 2)
        values_[reversed_[i / 2]] = {static_cast<float>(frame[i]) * window_[i],
                                     static_cast<float>(frame[i + 1]) * window_[i + 1]};
}

void PowerSpectrum::transform() {
    for (std::size_t half = 1; half < kHalf; half *= 2) {
        const std::size_t stride = kSize / (2 * half);
        for (std::size_t k = 0; k < half; ++k) {
            const Complex turn = turns_[k * stride];
            for (std::size_t at = k; at < kHalf; at += 2 * half) {
                Complex& low = values_[at];
                Complex& high = values_[at + half];
                const Complex turned{high.re * turn.re - high.im * turn.im, high.re * turn.im + high.im * turn.re};
                high = {low.re - turned.re, low.im - turned.im};
                low = {low.re + turned.re, low.im + turned.im};
            }
        }
    }
}

/// Takes the spectra of the even and the odd samples apart and adds them.
void PowerSpectrum::separate() {
    for (std::size_t k = 0; k < kBins; ++k) {
        const Complex a = values_[k];
        const Complex b = values_[(kHalf - k) % kHalf];
        const Complex even{(a.re + b.re) / 2, (a.im - b.im) / 2};
        const Complex odd{(a.im + b.im) / 2, (b.re - a.re) / 2};
        const Complex turn = turns_[k];
        const float re = even.re + odd.re * turn.re - odd.im * turn.im;
        const float im = even.im + odd.re * turn.im + odd.im * turn.re;
        power_[k] = re * re + im * im;
    }
}

}  // namespace tessivox::backend
