#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/ports/Preferences.h"
#include "services/telemetry/AnalyticsEvent.h"
#include "services/telemetry/ports/AnalyticsSink.h"

namespace tessivox::telemetry {

/// The one front through which usage signals leave. Every decision writes one diagnostic line. Main thread.
class Analytics {
public:
    static constexpr std::string_view kTelemetryAppID = "5D0C7E21-9A34-4F6B-8C1E-2B7A90D3F146";

    /// `enabled` is the user's switch, asked at each signal. An empty version means that it is not known.
    Analytics(AnalyticsSink& sink, base::Preferences& preferences, std::function<bool()> enabled,
              std::string applicationVersion);

    /// Once a start, before any signal. Tells of an update installed since the last start.
    void start();
    /// Sends the signal if the user's switch is on. Never fails; a parameter that the vocabulary does not give this
    /// event is a mistake in the program.
    void track(AnalyticsEvent event, const Parameters& parameters = {});
    /// Tells once in the life of an installation that a recording was made.
    void reportFirstRecording();

private:
    AnalyticsSink& sink_;
    base::Preferences& preferences_;
    std::function<bool()> enabled_;
    std::string applicationVersion_;

    void checkVersion();
};

}  // namespace tessivox::telemetry
