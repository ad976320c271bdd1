#include "detection/RecordingController.h"

#include <cstdlib>
#include <exception>
#include <utility>
#include <variant>

#include "base/Error.h"
#include "base/Log.h"
#include "base/Text.h"
#include "core/AudioQuality.h"
#include "services/telemetry/ParameterText.h"

namespace tessivox::detection {
namespace {

using base::filled;
using base::localized;
using telemetry::AnalyticsEvent;
using telemetry::BreadcrumbLevel;
using telemetry::truthText;
using Path = std::filesystem::path;

std::optional<audio::SourceOverride> sourceOverride(CaptureChoice capture) {
    switch (capture) {
        case CaptureChoice::microphoneOnly:
            return audio::SourceOverride::microphoneOnly;
        case CaptureChoice::systemAudioOnly:
            return audio::SourceOverride::systemAudioOnly;
        case CaptureChoice::asSettings:
            return std::nullopt;
    }
    std::abort();
}

std::optional<SessionCapture> sessionCaptureOf(CaptureChoice capture) {
    if (capture == CaptureChoice::asSettings) return std::nullopt;
    const bool isMicrophone = capture == CaptureChoice::microphoneOnly;
    return SessionCapture{isMicrophone, !isMicrophone};
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const auto& text : texts) all += (all.empty() ? "" : ",") + text;
    return all;
}

std::string nothingRuns() { return localized("Nothing is being recorded: start a recording first."); }

core::Alert finalizeFailure(const std::optional<Path>& rescued) {
    core::Alert alert;
    alert.style = core::AlertStyle::critical;
    alert.message = localized("Recording couldn’t be finalized");
    if (rescued) {
        alert.text = filled(localized("The audio conversion failed, but your raw recording was preserved and can be "
                                      "recovered:\n\n{0}"),
                            {rescued->filename().string()});
        alert.buttons = {localized("Show in Finder"), localized("OK")};
        alert.safeChoice = 1;
    } else {
        alert.text = localized("The audio conversion failed and the recording could not be recovered.");
        alert.buttons = {localized("OK")};
    }
    return alert;
}

/// Sets a flag until it goes, however that comes about.
class Flag {
public:
    explicit Flag(bool& flag) : flag_(flag) { flag_ = true; }
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;
    ~Flag() { flag_ = false; }

private:
    bool& flag_;
};

}  // namespace

std::string_view nameOf(RecordingSource source) {
    switch (source) {
        case RecordingSource::manual:
            return "manual";
        case RecordingSource::toast:
            return "toast";
        case RecordingSource::automatic:
            return "auto";
    }
    std::abort();
}

std::string missingText(double seconds) {
    return filled(localized("{0} seconds could not be written and are missing from the recording: check that the disk "
                            "is sound and has room."),
                  {base::fixedNumber(seconds, 1)});
}

std::string failureText(const audio::ConversionFailed& failed) {
    if (!failed.rescuedPCM)
        return localized(
            "The recording could not be encoded; its sound waits to be recovered: see that the disk has room, and give "
            "the command tessivox recover.");
    return filled(localized("The recording could not be encoded; its sound is kept in \"{0}\", which "
                            "other programs can open."),
                  {failed.rescuedPCM->string()});
}

RecordingController::RecordingController(Parts parts) : parts_(std::move(parts)), tasks_(parts_.scheduler) {}

void RecordingController::wireCallDetection() {
    if (std::exchange(callDetectionWired_, true)) return;
    callStarted_ =
        parts_.detector.callStarted.observe([this](const std::string& bundleID) { handleCallStarted(bundleID); });
    callEnded_ = parts_.detector.callEnded.observe([this] { handleCallEnded(); });
}

void RecordingController::handleCallStarted(const std::string& bundleID) {
    auto& state = parts_.state;
    isCallEndUnanswered_ = false;
    state.isCallDetected.set(true);
    parts_.analytics.track(AnalyticsEvent::callDetected, {{"is_new_call", truthText(isNewCall())},
                                                          {"trigger_app", bundleID},
                                                          {"all_apps", joined(parts_.detector.triggeringApps())}});
    crumb("call", "Call detected");
    if (state.isRecording.get()) return;
    if (parts_.settings.showRecordingPrompt.get()) {
        parts_.analytics.track(AnalyticsEvent::recordingPromptShown, parts_.detector.callContextProperties());
        crumb("prompt", "Recording prompt shown");
        parts_.startPrompt.show([this] { promptAccepted(); });
    } else if (parts_.settings.autoStartRecording.get()) {
        crumb("call", "Auto-starting recording");
        start(RecordingSource::automatic);
    }
}

bool RecordingController::isNewCall() const {
    return !lastCallEndedAt_ || parts_.scheduler.wallNow() - *lastCallEndedAt_ > kNewCallGap;
}

void RecordingController::promptAccepted() {
    parts_.analytics.track(AnalyticsEvent::recordingPromptAccepted, parts_.detector.callContextProperties());
    crumb("prompt", "Recording prompt accepted");
    start(RecordingSource::toast);
}

void RecordingController::handleCallEnded() {
    parts_.state.isCallDetected.set(false);
    lastCallEndedAt_ = parts_.scheduler.wallNow();
    crumb("call", "Call ended");
    if (parts_.state.isRecording.get()) {
        answerCallEnd();
    } else if (isStarting_) {
        isCallEndUnanswered_ = true;
    }
}

void RecordingController::answerCallEnd() {
    if (parts_.settings.autoStopRecording.get() || parts_.settings.autoStartRecording.get()) return stop();
    parts_.analytics.track(AnalyticsEvent::stopPromptShown);
    crumb("prompt", "Stop recording prompt shown");
    parts_.stopPrompt.show([this] { stopPromptAccepted(); });
}

void RecordingController::stopPromptAccepted() {
    parts_.analytics.track(AnalyticsEvent::stopPromptAccepted);
    crumb("prompt", "Stop recording prompt accepted");
    stop();
}

void RecordingController::start(RecordingSource source) { tasks_.start(startUnattended(source)); }

base::Task<void> RecordingController::startUnattended(RecordingSource source) {
    auto starting = startRecording(CaptureChoice::asSettings, source);
    co_await starting;
}

void RecordingController::stop() { tasks_.start(stopUnattended()); }

base::Task<void> RecordingController::stopUnattended() {
    auto stopping = stopRecording();
    const auto stopped = co_await stopping;
    if (stopped.refusal) base::log("DEBUG: Recording not stopped: " + *stopped.refusal);
}

base::Task<RecordingController::Refusal> RecordingController::startRecording(CaptureChoice capture,
                                                                             RecordingSource source) {
    if (isEnding_) co_return localized("The session is ending: start the recording after the next login.");
    crumb("recording", "Starting recording", {{"source", std::string(nameOf(source))}});
    const bool isFirst = !isStarting_;  // the recorder refuses a second one itself
    std::optional<Flag> awaited;
    if (isFirst) awaited.emplace(isStarting_);
    updateWork();
    std::exception_ptr failure;
    Path url;
    try {
        auto starting = parts_.recorder.startRecording(sourceOverride(capture), std::nullopt);
        url = co_await starting;
    } catch (...) {
        failure = std::current_exception();
    }
    awaited.reset();
    if (failure) {
        noteFailedStart(failure);
    } else {
        noteStart(url, capture, source);
    }
    if (isFirst) catchUp();
    updateWork();
    co_return failure ? Refusal(base::describe(failure)) : std::nullopt;
}

void RecordingController::noteFailedStart(const std::exception_ptr& error) {
    const auto text = base::describe(error);
    base::log("DEBUG: Recording error: " + text);
    parts_.crashReporter.error("Recording failed to start", error);
    parts_.state.lastError.set(core::AppError(core::AppError::RecordingFailed{text}));
}

void RecordingController::noteStart(const Path& url, CaptureChoice capture, RecordingSource source) {
    auto& state = parts_.state;
    sessionCapture.set(sessionCaptureOf(capture));
    state.isRecording.set(true);
    state.isPaused.set(false);
    state.currentRecordingURL.set(url);
    state.startRecordingClock();
    const auto& settings = parts_.settings;
    const auto used = sessionCapture.get().value_or(
        SessionCapture{settings.recordMicrophone.get(), settings.recordSystemAudio.get()});
    parts_.analytics.track(AnalyticsEvent::recordingStarted,
                           {{"source", std::string(nameOf(source))},
                            {"mic", truthText(used.microphone)},
                            {"system", truthText(used.systemAudio)},
                            {"audio_quality", std::string(core::rawValue(settings.audioQuality.get()))}});
    parts_.analytics.reportFirstRecording();
    parts_.crashReporter.recordingStarted(std::string(nameOf(source)));
}

/// What was asked for while the start was awaited.
void RecordingController::catchUp() {
    const bool isCallEndUnanswered = std::exchange(isCallEndUnanswered_, false) && awaitedStops_.empty();
    for (const auto& stop : std::exchange(awaitedStops_, {})) stop.succeed(true);
    if (isCallEndUnanswered && parts_.state.isRecording.get()) answerCallEnd();
}

base::Task<RecordingController::Stopped> RecordingController::stopRecording() {
    if (isStarting_) {
        const auto startDone = awaitedStops_.emplace_back();
        co_await startDone;
    }
    if (!parts_.state.isRecording.get()) co_return Stopped{nothingRuns(), audio::Empty{}};
    std::optional<Flag> saving(isSaving_);
    parts_.stopPrompt.dismiss();
    const double duration = parts_.state.recordingDuration.get();
    noteStop(duration);
    auto stopping = parts_.recorder.stopRecording();
    const auto outcome = co_await stopping;
    if (const auto* saved = std::get_if<audio::Saved>(&outcome)) filed(*saved, duration);
    if (const auto* failed = std::get_if<audio::ConversionFailed>(&outcome)) tellFailure(failed->rescuedPCM, duration);
    saving.reset();
    updateWork();
    co_return Stopped{{}, outcome};
}

void RecordingController::noteStop(double duration) {
    auto& state = parts_.state;
    state.isRecording.set(false);
    state.isPaused.set(false);
    state.recordingTimer.reset();
    state.currentRecordingURL.set(std::nullopt);
    sessionCapture.set(std::nullopt);
    const auto seconds = telemetry::wholeSecondsText(base::fromSeconds(duration));
    parts_.analytics.track(AnalyticsEvent::recordingStopped, {{"duration_sec", seconds}});
    parts_.crashReporter.recordingStopped(base::fromSeconds(duration));
}

void RecordingController::filed(const audio::Saved& saved, double duration) {
    parts_.storage.addRecording(saved.url, duration);
    base::log("Recording saved to: " + saved.url.string());
    if (saved.missingSeconds > 0)
        parts_.state.lastError.set(core::AppError(core::AppError::RecordingFailed{missingText(saved.missingSeconds)}));
    const auto length = base::fromSeconds(duration);
    if (parts_.settings.autoTranscribe.get() && length >= kShortestTranscribed) transcribe(saved.url, length);
}

void RecordingController::transcribe(const Path& url, base::Duration duration) {
    if (isEnding_) return parts_.transcribeLater(url, duration);
    parts_.crashReporter.transcriptionStarted(url.filename().string());
    tasks_.start(parts_.transcribe(url, duration));
}

void RecordingController::tellFailure(const std::optional<Path>& rescued, double duration) {
    parts_.analytics.track(AnalyticsEvent::recordingFinalizeFailed,
                           {{"rescued", truthText(rescued.has_value())},
                            {"duration_sec", telemetry::wholeSecondsText(base::fromSeconds(duration))}});
    parts_.crashReporter.error("Recording finalize failed");
    // Apart, so that the stop does not last until somebody has read it.
    tasks_.start(showFinalizeFailure(rescued));
}

base::Task<void> RecordingController::showFinalizeFailure(std::optional<Path> rescued) {
    auto alert = finalizeFailure(rescued);
    const auto choice = co_await parts_.alerts.show(std::move(alert));
    if (rescued && choice == 0) parts_.reveal(*rescued);
}

RecordingController::Refusal RecordingController::pauseRecording() {
    auto& state = parts_.state;
    if (!state.isRecording.get()) return nothingRuns();
    if (state.isPaused.get()) return localized("The recording is paused already: resume it to go on.");
    parts_.recorder.pauseRecording();
    state.isPaused.set(true);
    state.recordingTimer.reset();
    parts_.analytics.track(AnalyticsEvent::recordingPaused);
    return std::nullopt;
}

RecordingController::Refusal RecordingController::resumeRecording() {
    auto& state = parts_.state;
    if (!state.isRecording.get()) return nothingRuns();
    if (!state.isPaused.get()) return localized("The recording is not paused: it goes on.");
    parts_.recorder.resumeRecording();
    state.isPaused.set(false);
    state.resumeRecordingClock();
    parts_.analytics.track(AnalyticsEvent::recordingResumed);
    return std::nullopt;
}

void RecordingController::endForGood() {
    if (std::exchange(isEnding_, true)) return;
    if (isStarting_ || parts_.state.isRecording.get()) stop();
}

void RecordingController::updateWork() { isAtWork.set(isStarting_ || isSaving_ || parts_.state.isRecording.get()); }

void RecordingController::crumb(std::string_view category, std::string_view message, telemetry::BreadcrumbData data) {
    parts_.crashReporter.addBreadcrumb(std::string(message), std::string(category), BreadcrumbLevel::info,
                                       std::move(data));
}

}  // namespace tessivox::detection
