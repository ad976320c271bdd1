#include "core/LaunchStep.h"

#include <string>

#include "base/Error.h"
#include "base/Log.h"

namespace tessivox::core {

std::string_view nameOf(LaunchStep step) {
    switch (step) {
        case LaunchStep::createDelegate:
            return "createDelegate";
        case LaunchStep::setUpState:
            return "setUpState";
        case LaunchStep::startCrashReporting:
            return "startCrashReporting";
        case LaunchStep::startAnalytics:
            return "startAnalytics";
        case LaunchStep::sendAppLaunched:
            return "sendAppLaunched";
        case LaunchStep::createUpdateManager:
            return "createUpdateManager";
        case LaunchStep::scheduleOnboarding:
            return "scheduleOnboarding";
        case LaunchStep::createStatusItem:
            return "createStatusItem";
        case LaunchStep::prepareStatusButton:
            return "prepareStatusButton";
        case LaunchStep::createPopover:
            return "createPopover";
        case LaunchStep::subscribeIcon:
            return "subscribeIcon";
        case LaunchStep::suppressWindows:
            return "suppressWindows";
        case LaunchStep::applyDockPolicy:
            return "applyDockPolicy";
        case LaunchStep::followDockPolicy:
            return "followDockPolicy";
        case LaunchStep::startRecovery:
            return "startRecovery";
        case LaunchStep::resumeTranscriptions:
            return "resumeTranscriptions";
        case LaunchStep::wireRecordingController:
            return "wireRecordingController";
        case LaunchStep::sendPendingFeedback:
            return "sendPendingFeedback";
        case LaunchStep::sendPendingRegistration:
            return "sendPendingRegistration";
    }
    return {};
}

void LaunchSteps::run(LaunchStep first, LaunchStep last) {
    for (auto step = static_cast<int>(first); step <= static_cast<int>(last); ++step)
        runOne(static_cast<LaunchStep>(step));
}

void LaunchSteps::runOne(LaunchStep step) {
    const auto& work = (*this)[step];
    if (!work) return;
    std::exception_ptr error;
    try {
        work();
    } catch (...) {
        error = std::current_exception();
    }
    if (!error) return;
    base::log("Launch step " + std::string(nameOf(step)) + " failed: " + base::describe(error));
    if (onFailure) onFailure(step, error);
}

}  // namespace tessivox::core
