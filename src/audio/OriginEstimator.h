#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/Units.h"

namespace tessivox::audio {

/// Estimates the host time of a stream's frame 0 from repeated timing replies, each of which tells it with an error of
/// a few milliseconds at worst. The estimate is their median, kept as it is while the median stays close, so that
/// buffers join without a seam; it follows the slow drift of a device clock in small steps. Not thread-safe.
class OriginEstimator {
public:
    /// A reply's word for the host time of frame 0.
    void add(base::HostTime observation);
    /// Forgets everything: frames were lost or the device paused, so old replies speak of another origin.
    void restart();

    /// Absent before the first reply.
    std::optional<base::HostTime> origin() const { return origin_; }
    /// Whether enough replies that agree are in for the estimate to be trusted to a fraction of a millisecond.
    bool isSettled() const { return count_ >= kEnough && strays_ == 0; }

    /// Host time of a frame, rounded up to a whole nanosecond so that placing by truncation gives the frame back.
    static base::HostTime timeOf(base::HostTime origin, std::uint64_t frame, double sampleRate);

private:
    static constexpr std::size_t kHistory = 21;
    static constexpr std::size_t kEnough = 7;
    static constexpr base::Duration kStray = std::chrono::milliseconds(15);
    static constexpr base::Duration kTolerance = std::chrono::microseconds(500);

    std::array<base::HostTime, kHistory> history_{};
    std::size_t count_ = 0;  ///< valid entries
    std::size_t next_ = 0;   ///< where the next one goes
    int strays_ = 0;         ///< latest replies in a row that lie far from the median
    std::optional<base::HostTime> origin_;

    void remember(base::HostTime observation);
    base::HostTime median() const;
};

}  // namespace tessivox::audio
