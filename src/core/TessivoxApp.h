#pragma once

#include <functional>

#include "base/Scheduler.h"
#include "core/AppDelegate.h"
#include "core/AppSettings.h"
#include "core/LaunchStep.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::core {

/// The program from its first line to its last. Constructing it runs the launch steps that come before the main loop,
/// its delegate the others. Main thread.
class TessivoxApp {
public:
    /// From the construction until onboarding comes up, if it was never completed.
    static constexpr base::Duration kOnboardingDelay = std::chrono::milliseconds(1500);

    struct Parts {
        AppSettings& settings;
        AppDelegate::Parts delegate;
        /// Absent where there are no windows.
        std::function<void()> openOnboarding;
    };

    /// Fills the steps that send the signal and schedule onboarding; the steps outlive it.
    TessivoxApp(Parts parts, LaunchSteps& steps);
    TessivoxApp(const TessivoxApp&) = delete;
    TessivoxApp& operator=(const TessivoxApp&) = delete;

    AppDelegate& delegate() { return delegate_; }

private:
    AppSettings& settings_;
    std::function<void()> openOnboarding_;
    AppDelegate delegate_;
    base::Timer onboarding_;

    void offerOnboarding();
};

}  // namespace tessivox::core
