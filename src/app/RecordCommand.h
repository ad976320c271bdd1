#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "app/RecordDisplay.h"
#include "app/RecordPreparation.h"
#include "audio/RecordingStopOutcome.h"
#include "audio/ports/AudioDevices.h"
#include "base/Completion.h"
#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/ports/Files.h"
#include "core/AppSettings.h"
#include "core/AppState.h"

namespace tessivox::app {

/// What a command asks of the recorder; as AudioRecorder offers it.
struct RecordingControls {
    std::function<base::Task<std::filesystem::path>(std::optional<std::filesystem::path> output)> start;
    std::function<base::Task<audio::RecordingStopOutcome>()> stop;
    std::function<void()> pause;
    std::function<void()> resume;
    /// Share done of an encoding that the stop has to do itself, from 0 to 1; 0 while there is none.
    std::function<double()> encodingProgress;
};

/// `tessivox record`: one recording, from the options to the saved path. Main thread.
class RecordCommand {
public:
    struct Parts {
        base::Scheduler& scheduler;
        base::Files& files;
        core::AppSettings& settings;  ///< on an overlay
        core::AppState& state;
        audio::AudioDevices& devices;
        const base::Observable<float>& microphoneLevel;
        const base::Observable<float>& systemAudioLevel;
        RecordingControls recorder;
        std::filesystem::path incompleteFolder;
        Console& console;
    };
    /// How it ends, once; it is not destroyed from within.
    struct Endings {
        std::function<void(ExitCode)> finished;
        /// The user does not want to wait until all is saved. The process ends with ExitCode::failed and touches no
        /// file any more.
        std::function<void()> abandoned;
    };

    /// Begins in a later turn of the loop.
    RecordCommand(RecordOptions options, Parts parts, Endings endings);

    /// The recording that something is still to be done with, whose path is not told yet; absent if there is none.
    const std::optional<std::filesystem::path>& savedForMore() const { return savedForMore_; }

    /// Ctrl-C and its relatives: the first stops and saves, one that comes while it saves abandons.
    void interrupt();

private:
    const RecordOptions options_;
    Parts parts_;
    Endings endings_;
    base::Completion<bool> stopWanted_;
    RecordView view_;
    bool isStopWanted_ = false;
    bool isInterrupted_ = false;  ///< from outside, not by a key
    bool isOver_ = false;
    std::optional<std::filesystem::path> url_;
    std::optional<std::filesystem::path> savedForMore_;
    base::Duration elapsedBefore_{};              ///< up to the last pause
    std::optional<base::HostTime> runningSince_;  ///< absent while paused
    std::optional<base::HostTime> savingSince_;
    base::Timer lengthReached_;
    base::Timer redraw_;
    base::Subscription errors_;
    base::Subscription keys_;
    base::TaskScope scope_;

    base::Task<void> run();
    base::Task<ExitCode> record();
    ExitCode told(const audio::RecordingStopOutcome& outcome);
    base::Task<std::optional<Refusal>> prepare();
    void finish(ExitCode code);
    void endProgress();
    void requestStop();
    void abandon();
    std::string whatIsLeft() const;
    void onKey(char key);
    void togglePause();
    void runClock();
    void stopClock();
    base::Duration elapsed() const;
    void setPhase(RecordView::Phase phase);
    void draw();
};

}  // namespace tessivox::app
