#include "backend/speech/NoiseFloor.h"

#include <algorithm>
#include <cstdint>

namespace tessivox::backend {
namespace {

using Level = BandLevels::Level;
constexpr std::size_t kBlock = 10;    ///< frames that share a floor
constexpr std::size_t kWindow = 100;  ///< blocks
constexpr double kQuiet = 0.10;
constexpr double kLoud = 0.95;
constexpr Level kAudible = BandLevels::level(-72);
constexpr Level kRange = BandLevels::level(-60);  ///< 40 dB

/// Counts levels, so that any share of a window that moves on is found without sorting.
class Histogram {
public:
    void count(const BandLevels& levels, std::size_t block, std::size_t band, int weight) {
        const std::size_t end = std::min(levels.frames(), (block + 1) * kBlock);
        for (std::size_t frame = block * kBlock; frame < end; ++frame) {
            counts_[levels[frame][band]] += weight;
            total_ += weight;
        }
    }

    /// The level that this share of the window does not pass.
    Level quantile(double share) const {
        std::int64_t left = static_cast<std::int64_t>(share * static_cast<double>(total_));
        std::size_t level = 0;
        while (level < counts_.size() - 1 && (left -= counts_[level]) >= 0) ++level;
        return static_cast<Level>(level);
    }

private:
    std::array<std::int64_t, 256> counts_{};
    std::int64_t total_ = 0;
};

Level floorOf(const Histogram& window) {
    const Level loud = window.quantile(kLoud);
    const Level faint = loud > kRange ? static_cast<Level>(loud - kRange) : Level{0};
    return std::max({window.quantile(kQuiet), faint, kAudible});
}

/// The floor of each window, by its first block.
std::vector<Level> windowFloors(const BandLevels& levels, std::size_t band, std::size_t blocks) {
    const std::size_t length = std::min(kWindow, blocks);
    Histogram window;
    for (std::size_t block = 0; block < length; ++block) window.count(levels, block, band, 1);
    std::vector<Level> floors{floorOf(window)};
    for (std::size_t first = 1; first + length <= blocks; ++first) {
        window.count(levels, first - 1, band, -1);
        window.count(levels, first + length - 1, band, 1);
        floors.push_back(floorOf(window));
    }
    return floors;
}

}  // namespace

NoiseFloor::NoiseFloor(const BandLevels& levels) : floors_((levels.frames() + kBlock - 1) / kBlock) {
    if (floors_.empty()) return;
    for (std::size_t band = 0; band < BandLevels::kBands; ++band) {
        const std::vector<Level> windows = windowFloors(levels, band, floors_.size());
        for (std::size_t block = 0; block < floors_.size(); ++block) {
            const std::size_t before = std::min(block < kWindow ? 0 : block - kWindow + 1, windows.size() - 1);
            const std::size_t after = std::min(block, windows.size() - 1);
            floors_[block][band] = std::max(windows[before], windows[after]);
        }
    }
}

const BandLevels::Frame& NoiseFloor::at(std::size_t frame) const { return floors_[frame / kBlock]; }

}  // namespace tessivox::backend
