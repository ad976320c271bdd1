#pragma once

#include <functional>

#include "base/Signal.h"
#include "core/AppState.h"
#include "detection/TimedToast.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"

namespace tessivox::detection {

/// Asks at a call's end whether a recording that still runs is to end too. Main thread.
class StopRecordingPromptWindowController {
public:
    struct Parts {
        base::Scheduler& scheduler;
        core::AppState& state;
        ToastPresenter& presenter;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
    };
    explicit StopRecordingPromptWindowController(const Parts& parts)
        : parts_(parts), toast_(parts.scheduler, parts.presenter) {}

    /// Shows the toast unless one is up or no recording runs. It stays until it is answered, dismissed, or nobody has
    /// answered for kToastPatience.
    void show(std::function<void()> onAccept);
    /// Safe at any time.
    void dismiss();

private:
    Parts parts_;
    TimedToast toast_;
    base::Subscription counting_;

    void keep();
    void giveUp();
};

}  // namespace tessivox::detection
