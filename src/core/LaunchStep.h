#pragma once

#include <array>
#include <cstddef>
#include <exception>
#include <functional>
#include <string_view>

namespace tessivox::core {

/// What happens from the start of the process until it is ready, in this order. Everything that may notice a call, and
/// hence ask the user something, begins in wireRecordingController or later.
enum class LaunchStep {
    // Before the main loop runs: TessivoxApp.
    createDelegate,
    setUpState,
    startCrashReporting,
    startAnalytics,
    sendAppLaunched,
    createUpdateManager,
    scheduleOnboarding,
    // In the main loop: AppDelegate.
    createStatusItem,
    prepareStatusButton,
    createPopover,
    subscribeIcon,
    suppressWindows,
    applyDockPolicy,
    followDockPolicy,
    startRecovery,
    resumeTranscriptions,
    wireRecordingController,
    sendPendingFeedback,
    sendPendingRegistration,
};

/// The step's name, as it stands above.
std::string_view nameOf(LaunchStep step);

/// What each step does in this process; a step that nobody filled does nothing. Main thread.
class LaunchSteps {
public:
    std::function<void()>& operator[](LaunchStep step) { return work_[static_cast<std::size_t>(step)]; }

    /// Is told what left a step as an exception, after it was logged.
    std::function<void(LaunchStep, const std::exception_ptr&)> onFailure;

    /// Runs the steps from the first to the last given. A step that fails does not keep the others from running: they
    /// do not build on each other's success, and whoever cannot be told of an update still wants to record.
    void run(LaunchStep first, LaunchStep last);

private:
    static constexpr std::size_t kCount = static_cast<std::size_t>(LaunchStep::sendPendingRegistration) + 1;
    std::array<std::function<void()>, kCount> work_;

    void runOne(LaunchStep step);
};

}  // namespace tessivox::core
