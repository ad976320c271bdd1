#include "app/HeadlessApp.h"

#include <string>
#include <utility>

#include "audio/RecordingFiles.h"
#include "base/Error.h"
#include "base/Text.h"
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

}  // namespace

HeadlessApp::HeadlessApp(Surroundings around)
    : around_(std::move(around)),
      preferences_(around_.files, around_.loop, around_.folders.configuration / "Tessivox" / "settings.json",
                   [this](const std::string& sentence) { around_.console.message(sentence); }),
      alerts_(around_.console),
      settings_(preferences_, around_.files, around_.folders, chooser_, loginItem_),
      state_(around_.loop),
      crashes_(around_.loop, around_.files, around_.folders.state / "Tessivox" / "Crashes"),
      crashReporter_(crashes_, preferences_, posix::fillRandom, buildInfo()),
      analytics_(
          signals_, preferences_, [this] { return settings_.analyticsEnabled.get(); }, TESSIVOX_VERSION),
      server_(around_.loop),
      permissions_(server_, [this](core::PrivacyPane pane) { showPane(pane); }),
      quitGuard_(state_, alerts_),
      recovery_(around_.loop, around_.files, encoders_),
      tasks_(around_.loop) {
    fillSteps();
    const core::AppDelegate::Parts delegate{around_.loop, analytics_, quitGuard_, nullptr, around_.end};
    app_.emplace(core::TessivoxApp::Parts{settings_, delegate, nullptr}, steps_);
    launch_ = around_.loop.after(base::Duration::zero(), [this] { app_->delegate().applicationDidFinishLaunching(); });
}

HeadlessApp::~HeadlessApp() = default;

void HeadlessApp::fillSteps() {
    steps_.onFailure = [this](LaunchStep step, const std::exception_ptr& error) {
        crashReporter_.error("Launch step " + std::string(nameOf(step)) + " failed", error);
        around_.console.message(base::describe(error));
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
}

base::Task<void> HeadlessApp::recover() {
    auto incomplete = audio::incompleteFolder(around_.folders);
    auto recordings = Path(settings_.recordingsDirectoryPath.get());
    auto recovering = recovery_.run(std::move(incomplete), std::move(recordings), {});
    const auto recovered = co_await recovering;
    for (const auto& file : recovered)
        around_.console.message(base::filled(base::localized("Recovered \"{0}\"."), {printable(file.string())}));
}

void HeadlessApp::showPane(core::PrivacyPane) {
    around_.console.message(
        base::localized("Sound is set up in the desktop's sound settings: choose a microphone and an output there."));
}

}  // namespace tessivox::app
