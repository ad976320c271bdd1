#pragma once

#include <functional>

#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "core/LaunchStep.h"
#include "core/QuitGuard.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::core {

/// Carries the launch steps that need the main loop, and the end of the program. Main thread.
class AppDelegate {
public:
    /// How long windows stay hidden after the launch, so that none comes up that was open when the session ended.
    static constexpr base::Duration kWindowSuppression = std::chrono::seconds(1);

    struct Parts {
        base::Scheduler& scheduler;
        telemetry::Analytics& analytics;
        QuitGuard& guard;
        /// Hides every window but the status icon's and onboarding's, now and whenever one is updated, until the
        /// subscription ends. Absent where there are no windows.
        std::function<base::Subscription()> suppressWindows;
        /// Ends the main loop after the present turn.
        std::function<void()> end;
    };

    /// Fills the step of window suppression; the rest is filled by whoever composes the program.
    AppDelegate(Parts parts, LaunchSteps& steps);
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Once, in the first turn of the main loop.
    void applicationDidFinishLaunching();
    /// Closing all windows never ends the program.
    static bool applicationShouldTerminateAfterLastWindowClosed() { return false; }

    /// Ends the program unless the user rather keeps a running recording. While that question is open, a second
    /// request is the same one.
    void terminate();
    /// Ends the program without a question, as "Quit Anyway" does: nothing is stopped, and the next start restores a
    /// running recording.
    void terminateNow();

private:
    Parts parts_;
    LaunchSteps& steps_;
    base::Subscription windowSuppressObserver_;
    base::Timer suppressionEnd_;
    bool isTerminating_ = false;
    base::TaskScope scope_;

    void startSuppression();
    base::Task<void> terminateIfAllowed();
    void applicationWillTerminate();
};

}  // namespace tessivox::core
