#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/Timer.h"
#include "base/Units.h"
#include "base/ports/Preferences.h"
#include "detection/AppExclusions.h"
#include "detection/ports/Applications.h"
#include "detection/ports/InputUseMonitor.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::detection {

/// Tells when another application uses a microphone: a call. Main thread.
class CallDetector {
public:
    static constexpr base::Duration kDebounceInterval = std::chrono::seconds(1);
    /// How often a call's end is looked for that no listener tells of, such as during a recording of our own.
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
    /// Name of the application to show, if one takes sound now and has a name: the one that the user is at, or else the
    /// first.
    std::optional<std::string> callDisplayName() const;
    /// What goes with the events about prompts.
    telemetry::Parameters callContextProperties() const;

    struct App {
        std::string bundleID;
        std::string name;
        bool operator==(const App&) const = default;
    };
    /// The application that the user may exclude for good, if there is one: never a browser.
    std::optional<App> excludableApp() const;
    void addIgnoredApp(const std::string& bundleID, const std::string& name);
    /// Which applications never make a call. A change acts from the next look on.
    AppExclusions& exclusions() { return exclusions_; }

private:
    Parts parts_;
    AppExclusions exclusions_;
    DeviceID monitoredDeviceID_ = 0;
    std::string triggeringBundleID_ = "unknown";
    std::int32_t triggeringPID_ = 0;
    std::vector<std::string> triggeringApps_;
    std::optional<base::HostTime> callStartedAt_;
    base::Timer debounce_;
    base::Timer polling_;
    base::Subscription deviceListener_;
    base::Subscription defaultListener_;

    void startMonitoring();
    void addDeviceListener();
    void handleDefaultInputChange();
    void checkProcesses();
    std::vector<InputProcess> externalProcesses(const std::vector<InputProcess>& all) const;
    void chooseTrigger(std::vector<InputProcess> external);
    void scheduleVerdict(bool isInUse);
    void setMicrophoneInUse(bool isInUse);
    void beginCall();
    void endCall();
    void startPolling();
    void stopPolling();
};

}  // namespace tessivox::detection
