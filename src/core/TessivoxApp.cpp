#include "core/TessivoxApp.h"

#include <utility>

namespace tessivox::core {

TessivoxApp::TessivoxApp(Parts parts, LaunchSteps& steps)
    : settings_(parts.settings), openOnboarding_(std::move(parts.openOnboarding)), delegate_(parts.delegate, steps) {
    steps[LaunchStep::sendAppLaunched] = [&analytics = parts.delegate.analytics] {
        analytics.track(telemetry::AnalyticsEvent::appLaunched);
    };
    steps[LaunchStep::scheduleOnboarding] = [this, &scheduler = parts.delegate.scheduler] {
        onboarding_ = scheduler.after(kOnboardingDelay, [this] { offerOnboarding(); });
    };
    steps.run(LaunchStep::createDelegate, LaunchStep::scheduleOnboarding);
}

void TessivoxApp::offerOnboarding() {
    if (openOnboarding_ && !settings_.hasCompletedOnboarding.get()) openOnboarding_();
}

}  // namespace tessivox::core
