#pragma once

#include "base/Units.h"

namespace tessivox::base {

/// A date and time of day in the user's time zone.
struct CivilTime {
    int year = 1970, month = 1, day = 1;  ///< month and day from 1
    int hour = 0, minute = 0, second = 0;
};

/// The user's time zone.
class LocalTime {
public:
    virtual ~LocalTime() = default;
    /// Any thread.
    virtual CivilTime civil(WallTime time) const = 0;
};

}  // namespace tessivox::base
