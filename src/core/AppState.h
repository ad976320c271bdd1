#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/Observable.h"
#include "base/Scheduler.h"
#include "core/AppError.h"

namespace tessivox::core {

/// What every front observes of the recording machinery. Main thread; each field is written by its owner only.
class AppState {
public:
    explicit AppState(base::Scheduler& scheduler) : scheduler_(scheduler) {}

    base::Observable<bool> isRecording{false};
    base::Observable<bool> isPaused{false};
    base::Observable<double> recordingDuration{0.0};  ///< seconds, a count of ticks for display only
    base::Observable<std::optional<std::filesystem::path>> currentRecordingURL;
    base::Observable<bool> isCallDetected{false};
    base::Observable<bool> showRecordingPrompt{false};
    base::Observable<std::optional<AppError>> lastError;
    base::Observable<std::optional<std::string>> pendingSettingsTab;

    /// The recording clock. Whoever pauses or stops the recording resets it.
    base::Timer recordingTimer;

    /// Counts from zero.
    void startRecordingClock();
    /// Counts on from the present duration.
    void resumeRecordingClock();

    /// "07:05", and "1:07:05" from an hour up. Fractions of a second are cut off.
    static std::string formattedDuration(double seconds);

private:
    base::Scheduler& scheduler_;
};

}  // namespace tessivox::core
