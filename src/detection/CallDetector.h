#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/ports/Preferences.h"
#include "detection/ports/Applications.h"
#include "detection/ports/InputUseMonitor.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::detection {

/// Tells when another application uses a microphone: a call. Main thread.
class CallDetector {
public:
    static constexpr base::Duration kDebounceInterval = std::chrono::seconds(1);
    static constexpr base::Duration kPollingInterval = std::chrono::seconds(5);

    struct Parts {
        base::Scheduler& scheduler;
        InputUseMonitor& inputUse;
        Applications& applications;
        base::Preferences& preferences;
        telemetry::Analytics& analytics;
        std::string myBundleID;
    };
    /// Watches from now on. A call that is under way already is found.
    explicit CallDetector(const Parts& parts);
    CallDetector(const CallDetector&) = delete;
    CallDetector& operator=(const CallDetector&) = delete;

    base::Observable<bool> isCallActive{false};
    base::Observable<bool> microphoneInUse{false};
    base::Signal<std::string> callStarted;  ///< the application held responsible
    base::Signal<> callEnded;

    /// Identifiers of up to five applications that were at it when the call began, the likeliest first.
    const std::vector<std::string>& triggeringApps() const { return triggeringApps_; }
    /// Name of the application to show, if one with a name takes sound now.
    std::optional<std::string> callDisplayName() const;
    /// What goes with the events about prompts.
    telemetry::Parameters callContextProperties() const;

    struct App {
        std::string bundleID;
        std::string name;
        bool operator==(const App&) const = default;
    };
    /// The application that the user may exclude for good, if there is one.
    std::optional<App> excludableApp() const;
    void addIgnoredApp(const std::string& bundleID, const std::string& name);

private:
    Parts parts_;
    std::vector<std::string> triggeringApps_;
};

}  // namespace tessivox::detection
