#include "detection/CallToasts.h"

#include <string_view>

#include "base/Text.h"
#include "core/AppState.h"

namespace tessivox::detection {
namespace {

using base::filled;
using base::localized;

std::string_view captureText(const core::AppSettings& settings) {
    const bool microphone = settings.recordMicrophone.get();
    const bool systemAudio = settings.recordSystemAudio.get();
    if (microphone && systemAudio) return "Mic + system audio";
    if (microphone) return "Microphone";
    return systemAudio ? "System audio" : "Audio";
}

}  // namespace

ToastContents startCallToast(const StartCallToastView& view, const core::AppSettings& settings) {
    const auto name = view.source.value_or(localized("a call"));
    ToastContents contents;
    contents.systemImage = "phone.fill";
    contents.title = localized("Record this call?");
    contents.subtitle = filled(localized("{0} · {1}"), {localized(captureText(settings)), name});
    contents.buttons = {
        {localized("Record"), "largecircle.fill.circle", ToastButtonKind::primaryBlue, view.onConfirm},
        {localized("Dismiss"), {}, ToastButtonKind::secondary, view.onDismiss},
    };
    if (view.ignoreAppName) {
        const auto title = filled(localized("Not a call — don't ask for {0}"), {*view.ignoreAppName});
        contents.buttons.push_back({title, {}, ToastButtonKind::plain, view.onIgnoreApp});
    }
    contents.announcement = localized("Call detected. Would you like to record this call?");
    contents.countdown = kToastPatience;
    contents.tint = ToastTint::blue;
    return contents;
}

ToastContents endCallToast(const EndCallToastView& view, double recordedSeconds) {
    ToastContents contents;
    contents.systemImage = "phone.down.fill";
    contents.title = localized("Call ended — still recording");
    contents.subtitle = endCallSubtitle(recordedSeconds);
    contents.buttons = {
        {localized("Stop & save"), "stop.fill", ToastButtonKind::primaryRed, view.onStop},
        {localized("Keep recording"), {}, ToastButtonKind::secondary, view.onKeep},
    };
    contents.announcement = localized("Call ended. Still recording. Stop and save, or keep recording?");
    contents.countdown = kToastPatience;
    contents.tint = ToastTint::red;
    return contents;
}

std::string endCallSubtitle(double recordedSeconds) {
    return filled(localized("Recording · {0}"), {core::AppState::formattedDuration(recordedSeconds)});
}

}  // namespace tessivox::detection
