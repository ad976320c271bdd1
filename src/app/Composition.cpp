#include "app/Composition.h"

#include <csignal>
#include <cstdlib>
#include <utility>

#include "app/DevicesCommand.h"
#include "app/Headless.h"
#include "app/HeadlessApp.h"
#include "app/InstanceLock.h"
#include "app/NetworkLoop.h"
#include "app/RecordCommand.h"
#include "app/RecoverCommand.h"
#include "app/ShowCommand.h"
#include "audio/AudioLevelMonitor.h"
#include "audio/AudioRecorder.h"
#include "audio/RecordingFiles.h"
#include "audio/StereoAudioWriter.h"
#include "base/TaskScope.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "core/AppSettings.h"
#include "core/AppState.h"
#include "core/JsonPreferences.h"
#include "core/PreferencesOverlay.h"
#include "library/RecordingStorage.h"
#include "library/Trash.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/FfmpegLengths.h"
#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/ffmpeg/SwrConverter.h"
#include "platform/linux/posix/Memory.h"
#include "platform/linux/posix/PosixLocalTime.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/posix/XdgFolders.h"
#include "platform/linux/pulse/PulseAudioDevices.h"
#include "platform/linux/pulse/PulseCaptureBackend.h"
#include "platform/linux/pulse/SoundServerLink.h"

namespace tessivox::app {

namespace {

/// The settings as a command sees them: what it sets holds for itself only.
struct CommandSettings {
    core::JsonPreferences stored;
    core::PreferencesOverlay preferences{stored};
    HeadlessFolderChooser chooser;
    HeadlessLoginItem loginItem;
    core::AppSettings settings;

    CommandSettings(base::Files& files, base::Scheduler& scheduler, const base::StandardFolders& folders,
                    Console& console)
        : stored(files, scheduler, folders.configuration / "Tessivox" / "settings.json",
                 [&console](const std::string& sentence) { console.message(sentence); }),
          settings(preferences, files, folders, chooser, loginItem) {}
};

bool isIgnored(int signal) {
    struct sigaction found {};
    return ::sigaction(signal, nullptr, &found) == 0 && found.sa_handler == SIG_IGN;
}

}  // namespace

Composition::Composition()
    : ignoresHangup_(isIgnored(SIGHUP)),
      signals_(loop_, {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT}, [this](int signal) { onSignal(signal); }),
      files_(loop_),
      folders_(posix::standardFolders(posix::processEnvironment())),
      terminal_(std::in_place, loop_),
      console_(*terminal_) {
    posix::keepBigBlocksApart();
}

void Composition::onSignal(int signal) {
    if (signal == SIGTSTP) {
        console_.status("");
        terminal_->suspend();
    } else if (signal == SIGCONT) {
        terminal_->resume();
    } else if (interrupt_ && !(signal == SIGHUP && ignoresHangup_)) {
        interrupt_();
    }
}

void Composition::finish(ExitCode code) {
    code_ = code;
    loop_.quit();
}

void Composition::leaveAtOnce() {
    terminal_.reset();  // gives it back in the mode it was found in
    std::_Exit(static_cast<int>(ExitCode::failed));
}

base::Task<void> Composition::finishWith(base::Task<ExitCode> command) {
    auto code = ExitCode::failed;
    try {
        code = co_await command;
    } catch (const base::Error& error) {
        console_.message(error.description());
    }
    finish(code);
}

ExitCode Composition::runTask(base::Task<ExitCode> command) {
    if (!interrupt_) interrupt_ = [this] { leaveAtOnce(); };
    base::TaskScope scope(loop_);
    scope.start(finishWith(std::move(command)));
    loop_.run();
    interrupt_ = nullptr;
    return code_;
}

ExitCode Composition::listDevices(const DevicesOptions& options) {
    pulse::SoundServerLink server(loop_);
    pulse::PulseAudioDevices devices(server);
    return runTask(app::listDevices(options, devices, console_));
}

ExitCode Composition::withLibrary(core::AppSettings& settings,
                                  const std::function<base::Task<ExitCode>(LibraryCommands&)>& command) {
    ffmpeg::redirectLog();
    posix::PosixLocalTime localTime;
    ffmpeg::FfmpegLengths lengths;
    library::Trash trash(files_, localTime, loop_, folders_.applicationSupport);
    const auto makeID = [] { return base::makeUuid(posix::fillRandom); };
    library::RecordingStorage storage({loop_, files_, settings, trash, lengths, makeID});
    LibraryCommands commands({files_, localTime, storage, settings.recordingsDirectoryPath.get(), console_});
    return runTask(command(commands));
}

ExitCode Composition::list(const ListOptions& options) {
    CommandSettings stored(files_, loop_, folders_, console_);
    return withLibrary(stored.settings, [&](LibraryCommands& commands) { return commands.list(options.asJSON); });
}

ExitCode Composition::show(const ShowOptions& options) {
    CommandSettings stored(files_, loop_, folders_, console_);
    const posix::PosixLocalTime localTime;
    return runTask(showCommand(files_, localTime, stored.settings.recordingsDirectoryPath.get(), options, console_));
}

ExitCode Composition::changeRecording(
    const std::filesystem::path& file,
    const std::function<base::Task<ExitCode>(LibraryCommands&, std::filesystem::path)>& change) {
    CommandSettings stored(files_, loop_, folders_, console_);
    const auto meant = meantRecording(files_, stored.settings.recordingsDirectoryPath.get(), file);
    // A recording may lie anywhere; its folder is the library then.
    stored.settings.recordingsDirectoryPath.set(meant.parent_path().string());
    return withLibrary(stored.settings, [&](LibraryCommands& commands) { return change(commands, meant); });
}

ExitCode Composition::rename(const RenameOptions& options) {
    return changeRecording(options.file, [&](LibraryCommands& commands, std::filesystem::path meant) {
        return commands.rename(std::move(meant), options.name);
    });
}

ExitCode Composition::trash(const TrashOptions& options) {
    return changeRecording(options.file, [](LibraryCommands& commands, std::filesystem::path meant) {
        return commands.trash(std::move(meant));
    });
}

ExitCode Composition::recover() {
    ffmpeg::redirectLog();
    CommandSettings stored(files_, loop_, folders_, console_);
    ffmpeg::AacEncoderFactory encoders;
    RecoveryRun recovery(loop_, files_, encoders);
    interrupt_ = [&recovery] { recovery.stop(); };
    return runTask(recoverCommand(recovery, audio::incompleteFolder(folders_),
                                  stored.settings.recordingsDirectoryPath.get(), console_));
}

ExitCode Composition::run() {
    const auto lock = takeInstanceLock(files_, posix::runtimeFolder(posix::processEnvironment()), folders_.state);
    if (!lock) {
        console_.message(base::localized("Tessivox is already running."));
        return ExitCode::done;
    }
    ffmpeg::redirectLog();
    NetworkLoop network(loop_);
    const auto environment = posix::processEnvironment();
    HeadlessApp app({loop_,
                     files_,
                     folders_,
                     console_,
                     [&network]() -> base::HttpClient& { return network.client(); },
                     {environment("TESSIVOX_ANALYTICS_URL"), environment("TESSIVOX_CRASH_URL")},
                     [&network] { network.quit(); }});
    interrupt_ = [&app] { app.terminateNow(); };
    network.run();
    interrupt_ = nullptr;
    return ExitCode::done;
}

ExitCode Composition::record(const RecordOptions& options) {
    ffmpeg::redirectLog();
    CommandSettings stored(files_, loop_, folders_, console_);
    auto& settings = stored.settings;
    core::AppState state(loop_);

    posix::PosixLocalTime localTime;
    pulse::SoundServerLink server(loop_);
    pulse::PulseAudioDevices devices(server);
    pulse::PulseCaptureBackend captures(loop_);
    ffmpeg::SwrConverterFactory converters;
    ffmpeg::AacEncoderFactory encoders;
    audio::AudioLevelMonitor levels(loop_);
    const auto incompleteFolder = audio::incompleteFolder(folders_);
    audio::StereoAudioWriter writer(loop_, files_, converters, encoders, incompleteFolder);
    const audio::AudioRecorder::Surroundings surroundings{loop_, files_,  localTime, settings,
                                                          state, devices, captures,  levels};
    audio::AudioRecorder recorder(surroundings, writer, incompleteFolder);

    const RecordingControls controls{
        [&](auto output) { return recorder.startRecording(std::nullopt, std::move(output)); },
        [&] { return recorder.stopRecording(); },
        [&] { recorder.pauseRecording(); },
        [&] { recorder.resumeRecording(); },
        [&] { return writer.encodingProgress.get(); },
    };
    const RecordCommand::Parts parts{
        loop_,    files_,           settings, state, devices, levels.microphoneLevel, levels.systemAudioLevel,
        controls, incompleteFolder, console_};
    RecordCommand command(options, parts, {[this](ExitCode code) { finish(code); }, [this] { leaveAtOnce(); }});
    interrupt_ = [&command] { command.interrupt(); };
    loop_.run();
    interrupt_ = nullptr;
    return code_;
}

}  // namespace tessivox::app
