#include "detection/StopRecordingPromptWindowController.h"

#include <utility>

namespace tessivox::detection {

using telemetry::AnalyticsEvent;
using telemetry::BreadcrumbLevel;

void StopRecordingPromptWindowController::show(std::function<void()> onAccept) {
    if (toast_.isVisible() || !parts_.state.isRecording.get()) return;
    EndCallToastView view;
    view.onStop = [this, accept = std::move(onAccept)] {
        accept();
        dismiss();
    };
    view.onKeep = [this] { keep(); };
    toast_.show(endCallToast(view, parts_.state.recordingDuration.get()), [this] { giveUp(); });
    counting_ = parts_.state.recordingDuration.observe(
        [this](double seconds) { toast_.setSubtitle(endCallSubtitle(seconds)); });
}

void StopRecordingPromptWindowController::keep() {
    parts_.crashReporter.addBreadcrumb("Stop recording prompt declined", "prompt", BreadcrumbLevel::info);
    parts_.analytics.track(AnalyticsEvent::stopPromptDeclined);
    dismiss();
}

void StopRecordingPromptWindowController::giveUp() {
    parts_.crashReporter.addBreadcrumb("Stop prompt auto-dismissed (kept recording)", "prompt", BreadcrumbLevel::info);
    dismiss();
}

void StopRecordingPromptWindowController::dismiss() {
    counting_.reset();
    toast_.dismiss();
}

}  // namespace tessivox::detection
