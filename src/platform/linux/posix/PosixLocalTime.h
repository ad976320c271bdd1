#pragma once

#include "base/ports/LocalTime.h"

namespace tessivox::posix {

/// The time zone of TZ or /etc/localtime, followed while the process runs.
class PosixLocalTime final : public base::LocalTime {
public:
    base::CivilTime civil(base::WallTime time) const override;
};

}  // namespace tessivox::posix
