#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessivox::backend {

/// How loud each band of the voice is, frame by frame, evened out over 65 ms. 8 bytes a frame: 12 MB for four hours.
class BandLevels {
public:
    /// In Hz: where voices are strong, hum is not, and every encoder keeps something.
    static constexpr std::array<int, 9> kEdges = {200, 350, 550, 800, 1100, 1500, 2000, 2700, 3500};
    static constexpr std::size_t kBands = kEdges.size() - 1;
    /// In steps of half a decibel from -100 dB of a full-scale sine; below that is nothing.
    using Level = std::uint8_t;
    using Frame = std::array<Level, kBands>;
    static constexpr double kStepsPerDecibel = 2;
    static constexpr Level level(double decibels) { return static_cast<Level>((decibels + 100) * kStepsPerDecibel); }

    explicit BandLevels(std::span<const std::int16_t> samples);

    std::size_t frames() const { return levels_.size(); }
    const Frame& operator[](std::size_t frame) const { return levels_[frame]; }
    /// The sum over all bands, to compare frames with.
    int loudness(std::size_t frame) const;

private:
    std::vector<Frame> levels_;
};

}  // namespace tessivox::backend
