#pragma once

#include <string>
#include <string_view>

namespace tessivox::telemetry {

/// Whether something may be sent to a URL: it is https, or http to this machine itself (127.0.0.0/8, [::1], localhost).
bool isAllowed(std::string_view url);

/// A sentence for the user about the URL of an environment variable that is not allowed. It does not tell the URL,
/// which may hold secrets.
std::string refusalOf(std::string_view variable);

}  // namespace tessivox::telemetry
