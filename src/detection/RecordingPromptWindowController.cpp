#include "detection/RecordingPromptWindowController.h"

#include <utility>

namespace tessivox::detection {

using telemetry::AnalyticsEvent;
using telemetry::BreadcrumbLevel;

RecordingPromptWindowController::RecordingPromptWindowController(Parts parts)
    : parts_(std::move(parts)), toast_(parts_.scheduler, parts_.presenter) {}

void RecordingPromptWindowController::show(std::function<void()> onAccept) {
    if (toast_.isVisible() || parts_.state.isRecording.get() || !parts_.canRecord()) return;
    StartCallToastView view;
    view.source = parts_.detector.callDisplayName();
    const auto app = parts_.detector.excludableApp();
    if (app) view.ignoreAppName = app->name;
    view.onConfirm = [this, accept = std::move(onAccept)] {
        accept();
        dismiss();
    };
    view.onDismiss = [this] { decline(); };
    view.onIgnoreApp = [this, app] { ignore(app); };
    toast_.show(startCallToast(view, parts_.settings), [this] { giveUp(); });
}

void RecordingPromptWindowController::decline() {
    parts_.crashReporter.addBreadcrumb("Recording prompt declined", "prompt", BreadcrumbLevel::info);
    parts_.analytics.track(AnalyticsEvent::recordingPromptDeclined, parts_.detector.callContextProperties());
    dismiss();
}

void RecordingPromptWindowController::ignore(const std::optional<CallDetector::App>& app) {
    if (app) {
        parts_.analytics.track(AnalyticsEvent::recordingPromptAppIgnored, parts_.detector.callContextProperties());
        parts_.detector.addIgnoredApp(app->bundleID, app->name);
    }
    dismiss();
}

void RecordingPromptWindowController::giveUp() {
    parts_.analytics.track(AnalyticsEvent::recordingPromptTimeout, parts_.detector.callContextProperties());
    parts_.crashReporter.addBreadcrumb("Recording prompt auto-dismissed (timeout)", "prompt", BreadcrumbLevel::info);
    dismiss();
}

}  // namespace tessivox::detection
