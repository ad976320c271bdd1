#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/Units.h"

namespace tessivox::audio {

/// Estimates the host time of a stream's frame 0 from repeated timing replies. A calm server's replies lie evenly
/// around the truth, and their median is the estimate. A busy one answers many of them some milliseconds late, which
/// makes the origin look as much later, but none early: so the estimate never lies far behind the earliest ones. It is
/// kept as it is while new replies change little, so that buffers join without a seam, and follows the slow drift of a
/// device clock in small steps. Late replies differ from each other; some in a row that agree tell of frames that the
/// server has lost, or of a pause. Not thread-safe.
class OriginEstimator {
public:
    /// A reply's word for the host time of frame 0.
    void add(base::HostTime observation);
    /// Forgets everything: frames were lost or the device paused, so old replies speak of another origin.
    void restart();
    /// The device may have paused: if the next reply does not confirm the origin, everything before it is forgotten.
    void doubt() { isDoubted_ = count_ > 0; }

    /// Absent before the first reply, and while in doubt.
    std::optional<base::HostTime> origin() const { return isDoubted_ ? std::nullopt : origin_; }
    /// Whether enough replies that agree are in for the estimate to be trusted to a fraction of a millisecond.
    bool isSettled() const { return count_ >= kEnough && strays_ == 0 && !isDoubted_; }

    /// Host time of a frame, rounded up to a whole nanosecond so that placing by truncation gives the frame back.
    static base::HostTime timeOf(base::HostTime origin, std::uint64_t frame, double sampleRate);

private:
    static constexpr std::size_t kHistory = 21;
    static constexpr std::size_t kEnough = 7;
    /// One in so many replies may be too early by chance.
    static constexpr std::size_t kPerOutlier = 8;
    /// How far behind the earliest replies the middle one lies without any being late: their noise, at 0.5 ms.
    static constexpr base::Duration kNoise = std::chrono::microseconds(600);
    /// Less than a server's block of 256 frames, which may be lost.
    static constexpr base::Duration kStray = std::chrono::milliseconds(4);
    /// So many strays in a row that lie so close together are the new truth; of those that lie far, two.
    static constexpr std::size_t kAgreeing = 5;
    static constexpr base::Duration kAgreement = std::chrono::microseconds(1500);
    static constexpr base::Duration kFar = std::chrono::milliseconds(15);
    static constexpr base::Duration kConfirmed = std::chrono::milliseconds(3);
    static constexpr base::Duration kTolerance = std::chrono::microseconds(500);

    std::array<base::HostTime, kHistory> history_{};
    std::size_t count_ = 0;   ///< valid entries
    std::size_t next_ = 0;    ///< where the next one goes
    std::size_t strays_ = 0;  ///< latest replies in a row that lie away from the estimate
    bool isDoubted_ = false;
    std::optional<base::HostTime> origin_;

    void remember(base::HostTime observation);
    base::HostTime latest(std::size_t age) const;
    std::size_t repliesAfterMove() const;
    void forgetAllBut(std::size_t latest);
    base::HostTime word() const;
};

}  // namespace tessivox::audio
