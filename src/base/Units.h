#pragma once

#include <chrono>
#include <cstdint>

namespace tessivox::base {

using namespace std::chrono_literals;

using Duration = std::chrono::nanoseconds;

/// The machine's monotonic clock (CLOCK_MONOTONIC), in nanoseconds. It has no now(): only a Scheduler tells the time.
struct HostClock {
    using rep = std::int64_t;
    using period = std::nano;
    using duration = Duration;
    using time_point = std::chrono::time_point<HostClock>;
    static constexpr bool is_steady = true;
};

using HostTime = HostClock::time_point;

/// Nanoseconds of CLOCK_REALTIME since 1970-01-01 00:00 UTC.
using WallTime = std::chrono::sys_time<Duration>;

/// Seconds as a plain number, for texts, tables and JSON.
constexpr double toSeconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

constexpr Duration fromSeconds(double seconds) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

}  // namespace tessivox::base
