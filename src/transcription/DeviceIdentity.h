#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/SharedDocument.h"
#include "base/ports/Preferences.h"

namespace tessivox::transcription {

/// What this installation is to a server: an identifier for life, and a token that belongs to the server that gave it.
/// Other processes may change the token at any time. Main thread.
class DeviceIdentity {
public:
    /// The token stands in a file of its own that only the user can read. `makeUuid` gives upper-case text.
    DeviceIdentity(base::Preferences& preferences, base::Files& files, base::Files::Path tokenFile,
                   std::function<std::string()> makeUuid);

    /// Made at the first call.
    std::string deviceIdentifier();
    /// The token for requests to this address; absent if it came from another origin (scheme, host and port), or none
    /// was given yet, or the file cannot be read.
    std::optional<std::string> deviceToken(const std::string& baseURL);
    /// Does nothing with a token that no header can carry. Throws FileError.
    void storeDeviceToken(const std::string& baseURL, const std::string& token);
    /// Removes the token if it is still this one. Throws FileError.
    void removeDeviceToken(const std::string& token);

private:
    struct Stored {
        std::string origin;
        std::string token;
    };
    base::Preferences& preferences_;
    base::Files& files_;
    base::SharedDocument document_;
    std::function<std::string()> makeUuid_;

    std::optional<Stored> stored();
};

}  // namespace tessivox::transcription
