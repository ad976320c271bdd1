#pragma once

#include <chrono>
#include <string>

#include "base/Units.h"

namespace tessivox::telemetry {

/// How signals and breadcrumbs write a truth value.
inline std::string truthText(bool value) { return value ? "true" : "false"; }

/// How they write a duration: whole seconds, truncated towards zero.
inline std::string wholeSecondsText(base::Duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(duration).count());
}

/// Whole minutes, truncated towards zero.
inline std::string wholeMinutesText(base::Duration duration) {
    return std::to_string(std::chrono::duration_cast<std::chrono::minutes>(duration).count());
}

}  // namespace tessivox::telemetry
