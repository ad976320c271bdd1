#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/SharedDocument.h"
#include "base/ports/Preferences.h"

namespace tessivox::transcription {

/// What this installation is to a server: an identifier for life, and a token that belongs to the server that gave it.
/// Main thread.
class DeviceIdentity {
public:
    /// The token stands in a file of its own that only the user can read.
    DeviceIdentity(base::Preferences& preferences, base::Files& files, base::Files::Path tokenFile,
                   std::function<std::string()> makeUuid);

    /// Made at the first call.
    std::string deviceIdentifier();
    /// The token for requests to this address; absent if it came from another origin (scheme, host and port), or none
    /// was given yet.
    std::optional<std::string> deviceToken(const std::string& baseURL);
    void storeDeviceToken(const std::string& baseURL, const std::string& token);
    /// Removes the token if it is still this one.
    void removeDeviceToken(const std::string& token);

private:
    base::Preferences& preferences_;
    base::Files& files_;
    base::SharedDocument document_;
    std::function<std::string()> makeUuid_;
};

}  // namespace tessivox::transcription
