#pragma once

#include <cstddef>
#include <vector>

#include "backend/speech/BandLevels.h"

namespace tessivox::backend {

/// How loud each band is when nobody speaks. Speech leaves each band alone for a tenth of the time at least, so this is
/// the lowest tenth of ten seconds, as in noise estimation by quantiles (Stahl, Fischer and Bippus, 2000). The ten
/// seconds before and those after are asked, and the louder answer holds, so that a fan that is switched on is noise at
/// once.
class NoiseFloor {
public:
    explicit NoiseFloor(const BandLevels& levels);
    /// By frame. Never further than 40 dB below the loud parts around: what is that much fainter is an echo or a
    /// breath.
    const BandLevels::Frame& at(std::size_t frame) const;

private:
    std::vector<BandLevels::Frame> floors_;  ///< one a block of frames
};

}  // namespace tessivox::backend
