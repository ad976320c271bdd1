#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessivox::backend {

/// Short frames of 16 kHz sound, 25 ms long and 10 ms apart, as recognisers of speech take them (ETSI ES 201 108, 4.2).
struct Frames {
    static constexpr std::size_t kLength = 400;  ///< samples
    static constexpr std::size_t kStep = 160;    ///< samples
    static constexpr std::size_t kPerSecond = 100;

    /// Whole frames in so many samples.
    static constexpr std::size_t count(std::size_t samples) {
        return samples < kLength ? 0 : 1 + (samples - kLength) / kStep;
    }
};

/// The power of a frame at each frequency, through a Hamming window and a Fourier transform of radix 2 (Cooley and
/// Tukey, 1965).
class PowerSpectrum {
public:
    static constexpr std::size_t kSize = 512;
    static constexpr std::size_t kBins = kSize / 2;       ///< the last one, half the rate itself, is left out
    static constexpr double kBinWidth = 16000.0 / kSize;  ///< Hz

    PowerSpectrum();
    /// Power at bin * kBinWidth; a sine at full scale has 1 there. Holds until the next call.
    std::span<const float, kBins> of(std::span<const std::int16_t> frame);

private:
    static constexpr std::size_t kHalf = kSize / 2;
    struct Complex {
        float re = 0;
        float im = 0;
    };
    std::array<float, Frames::kLength> window_;
    std::array<Complex, kHalf> turns_;  ///< exp(-2 pi i k / kSize)
    std::array<std::uint16_t, kHalf> reversed_;
    std::array<Complex, kHalf> values_;
    std::array<float, kBins> power_;

    void load(std::span<const std::int16_t> frame);
    void transform();
    void separate();
};

}  // namespace tessivox::backend
