#pragma once

#include <string>

#include "base/Task.h"

namespace tessivox::transcription {

/// Where the transcription server is. Main thread.
class ServerLocation {
public:
    virtual ~ServerLocation() = default;
    /// The server's base address, which ends in "/api" and has no slash at its end. Asked before each request: the
    /// server of this computer is started, or found again, if need be. Throws base::HttpError if there is none.
    virtual base::Task<std::string> baseURL() = 0;
    /// The same for logs, as far as it is known, with a secret in it masked.
    virtual std::string shownBaseURL() const = 0;
};

}  // namespace tessivox::transcription
