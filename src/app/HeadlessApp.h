#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Console.h"
#include "app/DetectionKit.h"
#include "app/Headless.h"
#include "app/RecoveryRun.h"
#include "app/TranscriptionKit.h"
#include "base/StandardFolders.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/ports/Files.h"
#include "base/ports/HttpClient.h"
#include "core/AppSettings.h"
#include "core/AppState.h"
#include "core/JsonPreferences.h"
#include "core/LaunchStep.h"
#include "core/PermissionManager.h"
#include "core/QuitGuard.h"
#include "core/TessivoxApp.h"
#include "library/RecordingStorage.h"
#include "library/Trash.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/FfmpegLengths.h"
#include "platform/linux/gio/GioNetworkPath.h"
#include "platform/linux/posix/CrashRecorder.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixLocalTime.h"
#include "platform/linux/pulse/PulsePermissions.h"
#include "platform/linux/pulse/SoundServerLink.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "services/telemetry/TelemetrySinks.h"

namespace tessivox::app {

/// All that `tessivox run --headless` consists of, as long as it runs: makes each object once and plugs what exists
/// into the launch steps. Main thread.
class HeadlessApp {
public:
    struct Surroundings {
        posix::EventLoop& loop;
        base::Files& files;
        const base::StandardFolders& folders;
        Console& console;
        base::HttpClient& network;  ///< used only where something is to be sent
        telemetry::Endpoints endpoints;
        std::optional<std::string> server;  ///< of the command line
        std::function<void()> end;          ///< ends the main loop
    };

    /// Runs the steps before the main loop; the others follow in its first turn.
    explicit HeadlessApp(Surroundings around);
    HeadlessApp(const HeadlessApp&) = delete;
    HeadlessApp& operator=(const HeadlessApp&) = delete;
    ~HeadlessApp();

    /// The answer to a signal: "Quit Anyway", since nobody can be asked. While a recording is saved at the session's
    /// end, which signals are part of, only a second one ends the program at once.
    void terminateNow();

private:
    Surroundings around_;
    core::JsonPreferences preferences_;
    HeadlessFolderChooser chooser_;
    HeadlessLoginItem loginItem_;
    HeadlessAlerts alerts_;
    core::AppSettings settings_;
    core::AppState state_;
    posix::CrashRecorder crashes_;
    telemetry::TelemetrySinks sinks_;
    telemetry::CrashReporter crashReporter_;
    telemetry::Analytics analytics_;
    pulse::SoundServerLink server_;
    pulse::PulsePermissions permissions_;
    ffmpeg::AacEncoderFactory encoders_;
    core::QuitGuard quitGuard_;
    std::optional<core::PermissionManager> permissionManager_;
    core::LaunchSteps steps_;
    std::optional<core::TessivoxApp> app_;
    base::Timer launch_;
    posix::PosixLocalTime localTime_;
    ffmpeg::FfmpegLengths lengths_;
    library::Trash trash_;
    library::RecordingStorage storage_;
    RecoveryRun recovery_;
    gio::GioNetworkPath networkPath_;
    TranscriptionKit transcription_;
    std::optional<DetectionKit> detection_;
    bool isToldToEnd_ = false;
    base::Subscription errors_;
    base::TaskScope tasks_;

    telemetry::TelemetrySinks::Surroundings telemetrySurroundings();
    void fillSteps();
    void watchCalls();
    void resumeTranscriptions();
    base::Task<void> recover();
    void showPane(core::PrivacyPane pane);
};

}  // namespace tessivox::app
