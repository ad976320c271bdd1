#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backend/speech/PowerSpectrum.h"

namespace tessivox::backend {

/// The power of a frame in 26 triangles of equal width on the mel scale, as ETSI ES 201 108 (4.2.9) builds them.
class MelSpectrum {
public:
    static constexpr std::size_t kSize = 26;
    using Values = std::array<float, kSize>;

    MelSpectrum();
    Values of(std::span<const std::int16_t> frame);

private:
    struct Triangle {
        std::size_t first = 0;  ///< bin
        std::vector<float> weights;
    };
    PowerSpectrum spectrum_;
    std::array<Triangle, kSize> triangles_;
};

}  // namespace tessivox::backend
