#include "core/AppDelegate.h"

#include <utility>

namespace tessivox::core {

AppDelegate::AppDelegate(Parts parts, LaunchSteps& steps)
    : parts_(std::move(parts)), steps_(steps), scope_(parts_.scheduler) {
    if (parts_.suppressWindows) steps_[LaunchStep::suppressWindows] = [this] { startSuppression(); };
}

void AppDelegate::applicationDidFinishLaunching() {
    steps_.run(LaunchStep::createStatusItem, LaunchStep::sendPendingRegistration);
}

void AppDelegate::startSuppression() {
    windowSuppressObserver_ = parts_.suppressWindows();
    suppressionEnd_ = parts_.scheduler.after(kWindowSuppression, [this] { windowSuppressObserver_.reset(); });
}

void AppDelegate::terminate() {
    if (scope_.isIdle()) scope_.start(terminateIfAllowed());
}

base::Task<void> AppDelegate::terminateIfAllowed() {
    const bool isAllowed = co_await parts_.guard.shouldTerminate();
    if (isAllowed) terminateNow();
}

void AppDelegate::terminateNow() {
    if (std::exchange(isTerminating_, true)) return;
    applicationWillTerminate();
    parts_.end();
}

void AppDelegate::applicationWillTerminate() { parts_.analytics.track(telemetry::AnalyticsEvent::appTerminated); }

}  // namespace tessivox::core
