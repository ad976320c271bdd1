#include "app/HeadlessApp.h"

#include <string>
#include <utility>

#include "audio/RecordingFiles.h"
#include "base/Error.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "library/RecoveryAnnouncement.h"
#include "platform/linux/posix/RandomBytes.h"

#ifndef TESSIVOX_VERSION
#error "The build defines TESSIVOX_VERSION."
#endif

namespace tessivox::app {
namespace {

using core::LaunchStep;
using Path = std::filesystem::path;

/// A build has no number besides its version here.
telemetry::BuildInfo buildInfo() { return {TESSIVOX_VERSION, TESSIVOX_VERSION}; }

Path stateFolder(const base::StandardFolders& folders) { return folders.state / "Tessivox"; }

}  // namespace

HeadlessApp::HeadlessApp(Surroundings around)
    : around_(std::move(around)),
      preferences_(around_.files, around_.loop, around_.folders.configuration / "Tessivox" / "settings.json",
                   [this](const std::string& sentence) { around_.console.message(sentence); }),
      alerts_(around_.console),
      settings_(preferences_, around_.files, around_.folders, chooser_, loginItem_),
      state_(around_.loop),
      crashes_(around_.loop, around_.files, telemetry::TelemetrySinks::crashFolder(stateFolder(around_.folders))),
      sinks_(telemetrySurroundings(), around_.endpoints),
      crashReporter_(sinks_.crashes(), preferences_, posix::fillRandom, buildInfo(), sinks_.dsn()),
      analytics_(
          sinks_.analytics(), preferences_, [this] { return settings_.analyticsEnabled.get(); }, TESSIVOX_VERSION),
      server_(around_.loop),
      permissions_(server_, [this](core::PrivacyPane pane) { showPane(pane); }),
      quitGuard_(state_, alerts_),
      trash_(around_.files, localTime_, around_.loop, around_.folders.applicationSupport),
      storage_(
          {around_.loop, around_.files, settings_, trash_, lengths_, [] { return base::makeUuid(posix::fillRandom); }}),
      recovery_(around_.loop, around_.files, encoders_),
      networkPath_(around_.loop),
      transcription_({around_.loop, around_.files, around_.folders, preferences_, settings_, storage_, alerts_,
                      analytics_, crashReporter_, networkPath_, around_.network, around_.server}),
      tasks_(around_.loop) {
    fillSteps();
    const core::AppDelegate::Parts delegate{around_.loop, analytics_, quitGuard_, nullptr, around_.end};
    app_.emplace(core::TessivoxApp::Parts{settings_, delegate, nullptr}, steps_);
    launch_ = around_.loop.after(base::Duration::zero(), [this] { app_->delegate().applicationDidFinishLaunching(); });
}

HeadlessApp::~HeadlessApp() = default;

telemetry::TelemetrySinks::Surroundings HeadlessApp::telemetrySurroundings() {
    return {around_.loop,
            around_.files,
            posix::fillRandom,
            stateFolder(around_.folders),
            crashes_,
            [this] { return settings_.analyticsEnabled.get(); },
            [this]() -> base::HttpClient& { return around_.network; },
            [this](const std::string& sentence) { around_.console.message(sentence); }};
}

void HeadlessApp::fillSteps() {
    steps_.onFailure = [this](LaunchStep step, const std::exception_ptr& error) {
        crashReporter_.error("Launch step " + std::string(nameOf(step)) + " failed", error);
        around_.console.message(base::filled(
            base::localized("A part of Tessivox could not be started; end other programs and start it again: {0}"),
            {printable(base::describe(error))}));
    };
    steps_[LaunchStep::setUpState] = [this] {
        const core::PermissionManager::Parts parts{around_.loop,
                                                   permissions_,
                                                   preferences_,
                                                   settings_,
                                                   analytics_,
                                                   alerts_,
                                                   [this] { app_->delegate().terminate(); }};
        permissionManager_.emplace(parts);
    };
    steps_[LaunchStep::startCrashReporting] = [this] { crashReporter_.start(); };
    steps_[LaunchStep::startAnalytics] = [this] { analytics_.start(); };
    steps_[LaunchStep::startRecovery] = [this] { tasks_.start(recover()); };
    steps_[LaunchStep::resumeTranscriptions] = [this] { resumeTranscriptions(); };
    steps_[LaunchStep::wireRecordingController] = [this] { watchCalls(); };
}

void HeadlessApp::resumeTranscriptions() {
    auto& service = transcription_.service();
    service.resumePendingTranscriptions();
    for (const auto& [recording, length] : detection::LeftTranscriptions(preferences_).take()) {
        if (!around_.files.exists(recording)) continue;
        crashReporter_.transcriptionStarted(recording.filename().string());
        tasks_.start(service.transcribeAndSummarize(recording, transcription::TranscriptionSource::automatic, length));
    }
}

void HeadlessApp::watchCalls() {
    detection_.emplace(
        DetectionKit::Surroundings{{around_.loop, around_.files, around_.folders, settings_, state_, server_},
                                   around_.console,
                                   preferences_,
                                   storage_,
                                   transcription_.service(),
                                   alerts_,
                                   analytics_,
                                   crashReporter_,
                                   [this] { return permissionManager_->canRecord(); },
                                   [this] { app_->delegate().terminateNow(); }});
    errors_ = state_.lastError.observe([this](const auto& error) {
        if (!error) return;
        around_.console.message(error->description());
        // Told, so that the same may be told again.
        around_.loop.post([this, none = std::optional<core::AppError>()] { state_.lastError.set(none); });
    });
}

void HeadlessApp::terminateNow() {
    if (detection_ && detection_->isSavingForGood() && !std::exchange(isToldToEnd_, true)) {
        around_.console.message(
            base::localized("The recording is being saved; a second signal leaves it to be recovered later."));
        return;
    }
    app_->delegate().terminateNow();
}

base::Task<void> HeadlessApp::recover() {
    auto incomplete = audio::incompleteFolder(around_.folders);
    auto recordings = Path(settings_.recordingsDirectoryPath.get());
    RecoveryRun::Handlers handlers;
    // Standard error is the system's log where a service runs the program.
    handlers.failed = [this](const std::string& base, const std::string& reason) {
        around_.console.message(
            base::filled("[Recovery] Failed to finalize {0}: {1}", {printable(base), printable(reason)}));
    };
    auto recovering = recovery_.run(std::move(incomplete), std::move(recordings), std::move(handlers));
    auto recovered = co_await recovering;
    library::RecoveryListeners listeners{
        alerts_, [this](const Path& url, double duration) { storage_.addRecording(url, duration); },
        [this](std::size_t count) {
            analytics_.track(telemetry::AnalyticsEvent::recordingRecovered, {{"count", std::to_string(count)}});
        }};
    auto announcing = library::announceRecovery(around_.files, std::move(listeners), std::move(recovered));
    co_await announcing;
}

void HeadlessApp::showPane(core::PrivacyPane) {
    around_.console.message(
        base::localized("Sound is set up in the desktop's sound settings: choose a microphone and an output there."));
}

}  // namespace tessivox::app
