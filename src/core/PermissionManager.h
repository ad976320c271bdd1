#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/ports/Preferences.h"
#include "core/AppSettings.h"
#include "core/Setting.h"
#include "core/ports/Alerts.h"
#include "core/ports/Permissions.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::core {

enum class PermissionStatus { unknown, notDetermined, denied, granted };

/// The status as signals carry it.
std::string_view eventText(PermissionStatus status);

/// Tracks the two grants that recording needs, asks for them, and shows the user where to change them. Main thread.
class PermissionManager {
public:
    /// From the user's consent until the program ends, so that the settings come up first.
    static constexpr base::Duration kQuitDelay = std::chrono::seconds(1);

    struct Parts {
        base::Scheduler& scheduler;
        Permissions& system;
        base::Preferences& store;
        AppSettings& settings;
        telemetry::Analytics& analytics;
        Alerts& alerts;
        std::function<void()> terminate;  ///< asks the quit guard first
    };

    /// Begins a first refreshAll(), and refreshes again whenever the system's answers change.
    explicit PermissionManager(Parts parts);
    PermissionManager(const PermissionManager&) = delete;
    PermissionManager& operator=(const PermissionManager&) = delete;

    // Written here only.
    base::Observable<PermissionStatus> microphonePermissionStatus{PermissionStatus::unknown};
    base::Observable<PermissionStatus> screenRecordingPermissionStatus{PermissionStatus::unknown};
    base::Observable<bool> requestedScreenRecordingThisRun{false};

    /// The first one tells both statuses as a signal.
    base::Task<void> refreshAll();
    base::Task<void> refreshMicrophoneStatus();
    base::Task<void> refreshScreenRecordingStatus();

    /// Gives the user's answer.
    base::Task<bool> requestMicrophonePermission();
    /// Leads the user to the settings if the system does not grant it at once.
    void requestScreenRecordingPermission();
    void openScreenRecordingSettings() { parts_.system.open(PrivacyPane::screenRecording); }
    void openMicrophoneSettings() { parts_.system.open(PrivacyPane::microphone); }
    void openPrivacySettings() { parts_.system.open(PrivacyPane::privacy); }

    bool hasAllPermissions() const;
    /// Whether something is to be recorded, and all of it is granted.
    bool canRecord() const;

    /// Takes the grant for system audio back and offers to quit, since a running program does not get it again. Only
    /// logs a failure.
    void resetScreenRecordingPermission();

private:
    using Status = base::Observable<PermissionStatus>;

    Parts parts_;
    Setting<bool> screenRecordingRequested_;
    bool launchStateReported_ = false;
    base::Timer quit_;
    base::Subscription systemChanges_;
    base::TaskScope scope_;

    void change(Status& status, PermissionStatus value, std::string_view type);
    void reportLaunchState();
    base::Task<void> resetAndOfferToQuit();
};

}  // namespace tessivox::core
