#pragma once

#include <sys/time.h>

#include <chrono>

#include "base/Units.h"

namespace tessivox::pulse {

/// The host clock, for capture threads. libstdc++'s steady clock is CLOCK_MONOTONIC.
inline base::HostTime hostNow() { return base::HostTime(std::chrono::steady_clock::now().time_since_epoch()); }

/// The host time of a wall-clock stamp of the recent past, which is what libpulse reports.
inline base::HostTime hostTimeOf(const timeval& stamp) {
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    const auto age = wall - std::chrono::seconds(stamp.tv_sec) - std::chrono::microseconds(stamp.tv_usec);
    return hostNow() - std::chrono::duration_cast<base::Duration>(age);
}

}  // namespace tessivox::pulse
