#pragma once

#include <filesystem>
#include <string>

#include "support/SoundServer.h"
#include "support/StubServer.h"

namespace tessivox::testing {

/// Chromium without a window, on a page of this computer that takes sound from the microphone for as long as the
/// browser runs.
class ChromiumProcess {
public:
    explicit ChromiumProcess(SoundServer& server);
    ChromiumProcess(const ChromiumProcess&) = delete;
    ChromiumProcess& operator=(const ChromiumProcess&) = delete;
    /// Ends it with all its children, and removes its profile.
    ~ChromiumProcess();

    void end();

private:
    std::filesystem::path profile_;
    StubServer page_;
    ChildProcess browser_;
};

}  // namespace tessivox::testing
