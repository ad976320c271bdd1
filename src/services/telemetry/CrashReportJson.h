#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "services/telemetry/CrashEvent.h"

namespace tessivox::telemetry {

/// What a report on the disk says of its stacks: lines "type: …" and "frame: 0x… own". Other lines are passed over, as
/// is an end that was not written.
CrashEvent crashEventOf(std::string_view report);

/// The report as it is sent: the event, and the lines that tell what, when and which build, but none with the paths of
/// this machine.
std::string crashReportJson(const CrashEvent& event, std::string_view report);

}  // namespace tessivox::telemetry
