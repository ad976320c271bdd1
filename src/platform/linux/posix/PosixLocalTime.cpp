#include "platform/linux/posix/PosixLocalTime.h"

#include <ctime>

namespace tessivox::posix {

base::CivilTime PosixLocalTime::civil(base::WallTime time) const {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
    const std::time_t stamp = seconds.count();
    std::tm parts{};
    // localtime_r alone keeps the zone of its first call, even if the user has since travelled.
    ::tzset();
    ::localtime_r(&stamp, &parts);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

}  // namespace tessivox::posix
