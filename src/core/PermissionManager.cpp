#include "core/PermissionManager.h"

#include <exception>
#include <utility>

#include "base/Error.h"
#include "base/Log.h"
#include "base/Text.h"
#include "services/telemetry/ParameterText.h"

namespace tessivox::core {
namespace {

using base::localized;
using telemetry::AnalyticsEvent;
using telemetry::truthText;

constexpr std::string_view kMicrophoneType = "mic";
constexpr std::string_view kScreenType = "screen";
constexpr std::size_t kOpenSettingsAndQuit = 0;
constexpr std::size_t kLater = 1;

PermissionStatus statusOf(MicrophoneAuthorization authorization) {
    switch (authorization) {
        case MicrophoneAuthorization::notDetermined:
            return PermissionStatus::notDetermined;
        case MicrophoneAuthorization::restricted:
        case MicrophoneAuthorization::denied:
            return PermissionStatus::denied;
        case MicrophoneAuthorization::authorized:
            return PermissionStatus::granted;
        case MicrophoneAuthorization::unknown:
            break;
    }
    return PermissionStatus::unknown;
}

Alert resetDone() {
    Alert alert;
    alert.style = AlertStyle::informational;
    alert.message = localized("Permissions Reset");
    alert.text = localized(
        "Screen Recording permissions have been reset. Please quit the app, grant permission again in System Settings, "
        "then reopen the app.");
    alert.buttons = {localized("Open Settings & Quit"), localized("Later")};
    alert.safeChoice = kLater;
    return alert;
}

}  // namespace

std::string_view eventText(PermissionStatus status) {
    switch (status) {
        case PermissionStatus::unknown:
            return "unknown";
        case PermissionStatus::notDetermined:
            return "not_determined";
        case PermissionStatus::denied:
            return "denied";
        case PermissionStatus::granted:
            return "granted";
    }
    return {};
}

PermissionManager::PermissionManager(Parts parts)
    : parts_(std::move(parts)),
      screenRecordingRequested_(parts_.store, "screenRecordingRequested", false),
      scope_(parts_.scheduler) {
    systemChanges_ = parts_.system.onChange([this] { scope_.start(refreshAll()); });
    scope_.start(refreshAll());
}

base::Task<void> PermissionManager::refreshAll() {
    co_await refreshMicrophoneStatus();
    co_await refreshScreenRecordingStatus();
    reportLaunchState();
}

base::Task<void> PermissionManager::refreshMicrophoneStatus() {
    const auto authorization = co_await parts_.system.microphone();
    change(microphonePermissionStatus, statusOf(authorization), kMicrophoneType);
}

base::Task<void> PermissionManager::refreshScreenRecordingStatus() {
    const bool isGranted = co_await parts_.system.canRecordScreen();
    const auto otherwise = screenRecordingRequested_.get() ? PermissionStatus::denied : PermissionStatus::notDetermined;
    change(screenRecordingPermissionStatus, isGranted ? PermissionStatus::granted : otherwise, kScreenType);
}

void PermissionManager::change(Status& status, PermissionStatus value, std::string_view type) {
    const auto before = status.get();
    status.set(value);
    const bool isDecision = value == PermissionStatus::denied || value == PermissionStatus::granted;
    if (before == PermissionStatus::unknown || before == value || !isDecision) return;
    parts_.analytics.track(AnalyticsEvent::permissionResult,
                           {{"type", std::string(type)}, {"granted", truthText(value == PermissionStatus::granted)}});
}

void PermissionManager::reportLaunchState() {
    if (std::exchange(launchStateReported_, true)) return;
    parts_.analytics.track(AnalyticsEvent::permissionState,
                           {{"mic", std::string(eventText(microphonePermissionStatus.get()))},
                            {"screen", std::string(eventText(screenRecordingPermissionStatus.get()))}});
}

base::Task<bool> PermissionManager::requestMicrophonePermission() {
    const bool isGranted = co_await parts_.system.requestMicrophone();
    change(microphonePermissionStatus, isGranted ? PermissionStatus::granted : PermissionStatus::denied,
           kMicrophoneType);
    co_return isGranted;
}

void PermissionManager::requestScreenRecordingPermission() {
    screenRecordingRequested_.set(true);
    requestedScreenRecordingThisRun.set(true);
    const bool isGranted = parts_.system.requestScreenRecording();
    base::log("CGRequestScreenCaptureAccess called, result: " + truthText(isGranted));
    scope_.start(refreshScreenRecordingStatus());
    if (isGranted) return;
    scope_.start(parts_.system.askForShareableContent());
    openScreenRecordingSettings();
}

bool PermissionManager::hasAllPermissions() const {
    return microphonePermissionStatus.get() == PermissionStatus::granted &&
           screenRecordingPermissionStatus.get() == PermissionStatus::granted;
}

bool PermissionManager::canRecord() const {
    const bool wantsMicrophone = parts_.settings.recordMicrophone.get();
    const bool wantsSystemAudio = parts_.settings.recordSystemAudio.get();
    if (wantsMicrophone && microphonePermissionStatus.get() != PermissionStatus::granted) return false;
    if (wantsSystemAudio && screenRecordingPermissionStatus.get() != PermissionStatus::granted) return false;
    return wantsMicrophone || wantsSystemAudio;
}

void PermissionManager::resetScreenRecordingPermission() { scope_.start(resetAndOfferToQuit()); }

base::Task<void> PermissionManager::resetAndOfferToQuit() {
    try {
        co_await parts_.system.resetScreenRecording();
    } catch (const base::Error& error) {
        base::log("Failed to reset TCC: " + error.description());
        co_return;
    }
    auto alert = resetDone();
    const auto choice = co_await parts_.alerts.show(std::move(alert));
    if (choice != kOpenSettingsAndQuit) co_return;
    openScreenRecordingSettings();
    quit_ = parts_.scheduler.after(kQuitDelay, parts_.terminate);
}

}  // namespace tessivox::core
