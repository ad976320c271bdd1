#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "audio/AudioRecorder.h"
#include "audio/RecordingStopOutcome.h"
#include "base/Completion.h"
#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/TaskScope.h"
#include "core/AppSettings.h"
#include "core/AppState.h"
#include "core/ports/Alerts.h"
#include "detection/CallDetector.h"
#include "detection/RecordingPromptWindowController.h"
#include "detection/StopRecordingPromptWindowController.h"
#include "library/RecordingStorage.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"

namespace tessivox::detection {

/// Which sources a recording is to take.
enum class CaptureChoice { microphoneOnly = 0, systemAudioOnly = 1, asSettings = 2 };

/// Who started a recording.
enum class RecordingSource { manual, toast, automatic };

/// The sources of a recording whose starter chose them.
struct SessionCapture {
    bool microphone = false;
    bool systemAudio = false;
    bool operator==(const SessionCapture&) const = default;
};

/// Drives every recording's life, whatever asks for it: turns calls into prompts, starts and stops, mirrors the result
/// into AppState, and sees to what follows a finished recording. Main thread.
class RecordingController {
public:
    /// A call counts as new only if more than this has passed since the last one.
    static constexpr base::Duration kNewCallGap = std::chrono::seconds(30);
    static constexpr base::Duration kShortestTranscribed = std::chrono::seconds(3);

    struct Parts {
        base::Scheduler& scheduler;
        core::AppSettings& settings;
        core::AppState& state;
        audio::AudioRecorder& recorder;
        CallDetector& detector;
        RecordingPromptWindowController& startPrompt;
        StopRecordingPromptWindowController& stopPrompt;
        library::RecordingStorage& storage;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        core::Alerts& alerts;
        /// Transcribes a recording that was just saved; never throws.
        std::function<base::Task<void>(std::filesystem::path, base::Duration)> transcribe;
        /// Keeps in mind, beyond the end of the program, that a recording is still to be transcribed.
        std::function<void(const std::filesystem::path&, base::Duration)> transcribeLater;
        /// Shows a file in the file manager.
        std::function<void(const std::filesystem::path&)> reveal;
    };
    explicit RecordingController(Parts parts);
    RecordingController(const RecordingController&) = delete;
    RecordingController& operator=(const RecordingController&) = delete;

    /// Why something was not done, a sentence; absent if it was done, or will be.
    using Refusal = std::optional<std::string>;

    /// The sources of the running recording if its starter chose them; absent while the settings decide or nothing
    /// runs. Written here only.
    base::Observable<std::optional<SessionCapture>> sessionCapture;
    /// From a start until what it recorded is saved, or nothing came of it. Written here only.
    base::Observable<bool> isAtWork{false};
    /// A recording is awaited that cannot be stopped yet; a stop is kept in mind.
    bool isStarting() const { return isStarting_; }

    /// From now on calls are acted upon. Once, at launch.
    void wireCallDetection();

    // Who starts or stops keeps the task alive to its end, which otherwise leaves the recorder half-way.

    /// What fails stands in AppState too.
    base::Task<Refusal> startRecording(CaptureChoice capture, RecordingSource source);
    struct Stopped {
        Refusal refusal;
        audio::RecordingStopOutcome outcome;  ///< audio::Empty if it was refused
    };
    /// Ends once the recording is saved. While a start is awaited it waits for that, and then stops.
    base::Task<Stopped> stopRecording();
    Refusal pauseRecording();
    Refusal resumeRecording();

    /// The session ends: stops and saves what runs, leaves the transcription to the next start of the program, and
    /// begins nothing any more. All is done when isAtWork is false.
    void endForGood();

private:
    Parts parts_;
    bool callDetectionWired_ = false;
    std::optional<base::WallTime> lastCallEndedAt_;
    bool isStarting_ = false;
    bool isSaving_ = false;
    std::vector<base::Completion<bool>> awaitedStops_;  ///< asked for during a start
    bool isCallEndUnanswered_ = false;                  ///< a call ended during a start
    bool isEnding_ = false;
    base::Subscription callStarted_;
    base::Subscription callEnded_;
    base::TaskScope tasks_;

    void handleCallStarted(const std::string& bundleID);
    void handleCallEnded();
    void answerCallEnd();
    void promptAccepted();
    void stopPromptAccepted();
    void start(RecordingSource source);
    void stop();
    void noteStart(const std::filesystem::path& url, CaptureChoice capture, RecordingSource source);
    void noteFailedStart(const std::exception_ptr& error);
    void catchUp();
    void noteStop(double duration);
    void filed(const audio::Saved& saved, double duration);
    void transcribe(const std::filesystem::path& url, base::Duration duration);
    void tellFailure(const std::optional<std::filesystem::path>& rescued, double duration);
    base::Task<void> showFinalizeFailure(std::optional<std::filesystem::path> rescued);
    base::Task<void> startUnattended(RecordingSource source);
    base::Task<void> stopUnattended();
    bool isNewCall() const;
    void updateWork();
    void crumb(std::string_view category, std::string_view message, telemetry::BreadcrumbData data = {});
};

/// "manual", "toast" or "auto"
std::string_view nameOf(RecordingSource source);
/// Tells the user of a saved recording that so many seconds are missing.
std::string missingText(double seconds);
/// Tells the user where the sound is that could not be encoded.
std::string failureText(const audio::ConversionFailed& failed);

}  // namespace tessivox::detection
