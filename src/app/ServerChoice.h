#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/Task.h"
#include "transcription/ServerAddress.h"
#include "transcription/ports/ServerLocation.h"

namespace tessivox::app {

/// The server that the user named, else the one of this computer. Main thread.
class ServerChoice final : public transcription::ServerLocation {
public:
    /// The server of this computer.
    struct Local {
        std::function<base::Task<std::string>()> baseURL;
        std::function<std::optional<std::string>()> lastURL;  ///< absent before the first was given
    };
    /// `settings` is asked each time, so that a change of the preferences counts at once.
    ServerChoice(std::function<transcription::ServerSettings()> settings, Local local)
        : settings_(std::move(settings)), local_(std::move(local)) {}

    base::Task<std::string> baseURL() override;
    std::string shownBaseURL() const override;

private:
    const std::function<transcription::ServerSettings()> settings_;
    const Local local_;
};

}  // namespace tessivox::app
