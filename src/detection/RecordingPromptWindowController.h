#pragma once

#include <functional>

#include "core/AppSettings.h"
#include "core/AppState.h"
#include "detection/CallDetector.h"
#include "detection/TimedToast.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"

namespace tessivox::detection {

/// Asks at a call's start whether to record it. Main thread.
class RecordingPromptWindowController {
public:
    struct Parts {
        base::Scheduler& scheduler;
        core::AppSettings& settings;
        core::AppState& state;
        CallDetector& detector;
        ToastPresenter& presenter;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        std::function<bool()> canRecord;  ///< whether the permissions allow what the settings want
    };
    explicit RecordingPromptWindowController(Parts parts);

    /// Shows the toast unless one is up, a recording runs or nothing may be recorded. It stays until it is answered,
    /// dismissed, or nobody has answered for kToastPatience.
    void show(std::function<void()> onAccept);
    void dismiss() { toast_.dismiss(); }

private:
    Parts parts_;
    TimedToast toast_;

    void decline();
    void ignore(const std::optional<CallDetector::App>& app);
    void giveUp();
};

}  // namespace tessivox::detection
