#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Error.h"

namespace tessivox::transcription {

/// An address of a server that cannot be used. The description says what to do and does not tell the address, which may
/// hold secrets.
class ServerAddressError : public base::Error {
public:
    explicit ServerAddressError(std::string_view source);
};

/// Where a user can name a server, the strongest first. An empty text is none.
struct ServerSettings {
    std::optional<std::string> option;       ///< of --server
    std::optional<std::string> environment;  ///< of TESSIVOX_SERVER
    std::optional<std::string> preference;   ///< of the preferences' key "serverURL"
};

/// The base address of the server that the user named; absent if none was, which means this computer's own. Throws
/// ServerAddressError.
std::optional<std::string> configuredServer(const ServerSettings& settings);

/// The base address that a user's text stands for: https, or http to this machine (127.0.0.0/8, [::1], localhost),
/// without user name, query or fragment. It ends in "/api", which is added if missing, and has no slash at its end.
/// Absent if the text is anything else.
std::optional<std::string> baseURLOf(std::string_view text);

/// Scheme, host and port of an allowed address in one spelling, such as "https://example.org:443"; absent for others.
std::optional<std::string> originOf(std::string_view url);

/// An address for logs: user name, query, fragment, and any part of the path that is long enough to be a secret are
/// replaced by "***". Takes any text.
std::string maskedURL(std::string_view url);

}  // namespace tessivox::transcription
