#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessivox::telemetry {

/// Why nothing is sent to a URL, as a sentence; absent if it is https, or http to this machine itself (127.0.0.0/8,
/// [::1], localhost).
std::optional<std::string> refusalOf(std::string_view url);

}  // namespace tessivox::telemetry
