#include "app/Composition.h"

#include <csignal>
#include <cstdlib>
#include <utility>

#include "app/DevicesCommand.h"
#include "app/ExcludeCommand.h"
#include "app/Headless.h"
#include "app/HeadlessApp.h"
#include "app/ImportCommand.h"
#include "app/InstanceLock.h"
#include "app/NetworkLoop.h"
#include "app/RecordCommand.h"
#include "app/RecorderKit.h"
#include "app/RecoverCommand.h"
#include "app/SettingsCommands.h"
#include "app/ShowCommand.h"
#include "app/TranscriptionCommands.h"
#include "app/TranscriptionKit.h"
#include "audio/RecordingFiles.h"
#include "base/TaskScope.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "core/AppSettings.h"
#include "core/AppState.h"
#include "core/JsonPreferences.h"
#include "core/PreferencesOverlay.h"
#include "detection/AppExclusions.h"
#include "library/RecordingStorage.h"
#include "library/Trash.h"
#include "platform/linux/desktop/DesktopApplications.h"
#include "platform/linux/desktop/DesktopEntries.h"
#include "platform/linux/desktop/ProcessIdentities.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/FfmpegLengths.h"
#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/gio/BusAddresses.h"
#include "platform/linux/gio/BusThread.h"
#include "platform/linux/gio/ControlClient.h"
#include "platform/linux/posix/Memory.h"
#include "platform/linux/posix/PosixLocalTime.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/posix/XdgFolders.h"
#include "platform/linux/pulse/PulseAudioDevices.h"
#include "platform/linux/pulse/SoundServerLink.h"
#include "services/telemetry/NoAnalyticsSink.h"
#include "transcription/RecordingClaims.h"

namespace tessivox::app {

namespace {

bool isIgnored(int signal) {
    struct sigaction found {};
    return ::sigaction(signal, nullptr, &found) == 0 && found.sa_handler == SIG_IGN;
}

}  // namespace

/// The settings as a command sees them: what it sets holds for itself only.
struct Composition::Settings {
    core::JsonPreferences stored;
    core::PreferencesOverlay preferences{stored};
    HeadlessFolderChooser chooser;
    HeadlessLoginItem loginItem;
    core::AppSettings settings;

    explicit Settings(Composition& of)
        : stored(of.files_, of.loop_, of.folders_.configuration / "Tessivox" / "settings.json",
                 [&of](const std::string& sentence) { of.console_.message(sentence); }),
          settings(preferences, of.files_, of.folders_, chooser, loginItem) {}

    std::filesystem::path folder() const { return settings.recordingsDirectoryPath.get(); }
    /// The recording that an argument means. It may lie anywhere; its folder is the library then.
    std::filesystem::path meantRecording(const base::Files& files, const std::filesystem::path& argument) {
        auto meant = app::meantRecording(files, folder(), argument);
        settings.recordingsDirectoryPath.set(meant.parent_path().string());
        return meant;
    }
};

/// The library of the folder that the settings name, for one command.
struct Composition::Library {
    posix::PosixLocalTime localTime;
    ffmpeg::FfmpegLengths lengths;
    library::Trash trash;
    library::RecordingStorage storage;

    Library(Composition& of, core::AppSettings& settings)
        : trash(of.files_, localTime, of.loop_, of.folders_.applicationSupport),
          storage({of.loop_, of.files_, settings, trash, lengths, [] { return base::makeUuid(posix::fillRandom); }}) {}
};

/// What a command over the server needs. It sends no signals and keeps no reports: these are the matter of the program
/// that runs all day.
struct Composition::Transcription {
    Library library;
    telemetry::NoAnalyticsSink nowhere;
    telemetry::Analytics analytics;
    HeadlessCrashSink noReports;
    telemetry::CrashReporter crashReporter;
    HeadlessAlerts alerts;
    HeadlessNetworkPath network;
    TranscriptionKit kit;
    TranscriptionCommands commands;

    Transcription(Composition& of, Settings& stored)
        : library(of, stored.settings),
          analytics(
              nowhere, stored.stored, [] { return false; }, TESSIVOX_VERSION),
          crashReporter(noReports, stored.stored, posix::fillRandom, {}),
          alerts(of.console_),
          kit({of.loop_, of.files_, of.folders_, stored.stored, stored.settings, library.storage, alerts, analytics,
               crashReporter, network, *of.network_, of.server_}),
          commands({of.loop_, of.files_, kit.service(), of.console_,
                    [&of, this] { return !kit.isServerChosenHere() && of.isSomebodyRunning(); }}) {
        requireUsableServer(of.server_, stored.stored);
        of.interrupt_ = [this] { commands.interrupt(); };
    }
};

Composition::Composition(const CommandLine& line)
    : server_(line.server),
      network_(std::make_unique<NetworkLoop>(loop_, line.caFile)),
      ignoresHangup_(isIgnored(SIGHUP)),
      signals_(loop_, {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT}, [this](int signal) { onSignal(signal); }),
      files_(loop_),
      folders_(posix::standardFolders(posix::processEnvironment())),
      terminal_(std::in_place, loop_),
      console_(*terminal_) {
    posix::keepBigBlocksApart();
    ffmpeg::redirectLog();
}

Composition::~Composition() = default;

void Composition::onSignal(int signal) {
    if (signal == SIGTSTP) {
        console_.status("");
        terminal_->suspend();
    } else if (signal == SIGCONT) {
        terminal_->resume();
    } else if (interrupt_ && !(signal == SIGHUP && (ignoresHangup_ || isInterrupted_))) {
        // The end of a session sends SIGHUP right after SIGTERM; nobody has pressed anything twice then.
        isInterrupted_ = true;
        interrupt_();
    }
}

void Composition::finish(ExitCode code) {
    code_ = code;
    network_->quit();
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
    network_->run();
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
    Library library(*this, settings);
    const transcription::RecordingClaims claims(files_, folders_.applicationSupport / "Tessivox");
    LibraryCommands commands({files_, library.localTime, library.storage, settings.recordingsDirectoryPath.get(),
                              console_, [&](const auto& recording) { return claims.isClaimed(recording); }});
    return runTask(command(commands));
}

ExitCode Composition::list(const ListOptions& options) {
    Settings stored(*this);
    return withLibrary(stored.settings, [&](LibraryCommands& commands) { return commands.list(options.asJSON); });
}

ExitCode Composition::show(const ShowOptions& options) {
    const Settings stored(*this);
    const posix::PosixLocalTime localTime;
    return runTask(showCommand(files_, localTime, stored.folder(), options, console_));
}

ExitCode Composition::changeRecording(
    const std::filesystem::path& file,
    const std::function<base::Task<ExitCode>(LibraryCommands&, std::filesystem::path)>& change) {
    Settings stored(*this);
    const auto meant = stored.meantRecording(files_, file);
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
    const Settings stored(*this);
    ffmpeg::AacEncoderFactory encoders;
    RecoveryRun recovery(loop_, files_, encoders);
    interrupt_ = [&recovery] { recovery.stop(); };
    return runTask(recoverCommand(recovery, audio::incompleteFolder(folders_), stored.folder(), console_));
}

/// Ends once a change is on the disk: a damaged file is given a moment to become whole before it is set aside.
base::Task<ExitCode> Composition::onceSaved(const core::JsonPreferences& store, ExitCode code) {
    const auto moment = core::JsonPreferences::kSecondLook * 2;
    if (!store.isSaved()) co_await loop_.sleep(moment);
    co_return store.isSaved() ? code : ExitCode::failed;
}

ExitCode Composition::get(const GetOptions& options) {
    Settings stored(*this);
    return SettingsCommands({stored.settings, stored.stored, files_, console_}).get(options.key);
}

ExitCode Composition::set(const SetOptions& options) {
    Settings stored(*this);
    core::AppSettings lasting(stored.stored, files_, folders_, stored.chooser, stored.loginItem);
    const auto code = SettingsCommands({lasting, stored.stored, files_, console_}).set(options.key, options.value);
    return runTask(onceSaved(stored.stored, code));
}

ExitCode Composition::exclude(const ExcludeOptions& options) {
    Settings stored(*this);
    desktop::DesktopEntries entries;
    desktop::ProcessIdentities identities(entries);
    const desktop::DesktopApplications applications(entries, identities);
    telemetry::NoAnalyticsSink nowhere;
    telemetry::Analytics analytics(
        nowhere, stored.stored, [] { return false; }, TESSIVOX_VERSION);
    detection::AppExclusions exclusions({applications, stored.stored, analytics});
    const auto code = ExcludeCommand({exclusions, applications, console_}).run(options);
    return runTask(onceSaved(stored.stored, code));
}

ExitCode Composition::run() {
    auto lock = takeLock();
    if (!lock) {
        const auto takesLock = [&] { return (lock = takeLock()) != nullptr; };
        const auto code = askRunning([&](const ControlParts& parts) { return reachFirst(parts, takesLock); });
        if (!lock) return code;
    }
    const auto environment = posix::processEnvironment();
    HeadlessApp app({loop_,
                     files_,
                     folders_,
                     console_,
                     *network_,
                     {environment("TESSIVOX_ANALYTICS_URL"), environment("TESSIVOX_CRASH_URL")},
                     server_,
                     [this] { network_->quit(); }});
    interrupt_ = [&app] { app.terminateNow(); };
    network_->run();
    interrupt_ = nullptr;
    return ExitCode::done;
}

ExitCode Composition::control(const ControlOptions& options) {
    return askRunning([&](const ControlParts& parts) { return controlCommand(options, parts); });
}

ExitCode Composition::askRunning(const std::function<base::Task<ExitCode>(const ControlParts&)>& command) {
    gio::BusThread bus(loop_, gio::busAddresses(posix::processEnvironment()));
    gio::ControlClient program(bus);
    return runTask(command({loop_, program, [this] { return isSomebodyRunning(); }, console_}));
}

std::unique_ptr<base::File> Composition::takeLock() {
    return takeInstanceLock(files_, posix::runtimeFolder(posix::processEnvironment()), folders_.state);
}

bool Composition::isSomebodyRunning() {
    try {
        return !takeLock();
    } catch (const base::Error&) {
        return false;  // nobody can have taken it
    }
}

ExitCode Composition::transcribe(const TranscribeOptions& options) {
    Settings stored(*this);
    TranscriptionCommands::Request request;
    request.recording = stored.meantRecording(files_, options.file);
    request.waits = options.waits;
    Transcription parts(*this, stored);
    return runTask(parts.commands.transcribe(std::move(request)));
}

ExitCode Composition::summarize(const SummarizeOptions& options) {
    Settings stored(*this);
    auto meant = stored.meantRecording(files_, options.file);
    Transcription parts(*this, stored);
    return runTask(parts.commands.summarize(std::move(meant)));
}

ExitCode Composition::usage() {
    Settings stored(*this);
    Transcription parts(*this, stored);
    return runTask(parts.commands.usage());
}

ExitCode Composition::importFiles(const ImportOptions& options) {
    Settings stored(*this);
    Transcription parts(*this, stored);
    auto& library = parts.library;
    const library::AudioFileImporter::Parts importer{loop_,
                                                     files_,
                                                     stored.settings,
                                                     parts.analytics,
                                                     library.storage,
                                                     library.lengths,
                                                     parts.kit.conversion(),
                                                     [] { return base::makeUuid(posix::fillRandom); },
                                                     {}};
    ImportCommand command({loop_, importer, parts.commands, console_});
    interrupt_ = [&command] { command.interrupt(); };
    return runTask(command.run(options.files));
}

ExitCode Composition::record(const RecordOptions& options) {
    Settings stored(*this);
    if (options.transcribes) requireUsableServer(server_, stored.stored);
    std::optional<std::filesystem::path> saved;
    const auto code = recordOnly(options, stored, saved);
    if (!saved) return code;
    TranscriptionCommands::Request request;
    request.recording = stored.meantRecording(files_, *saved);
    request.source = transcription::TranscriptionSource::automatic;
    request.summarizes = stored.settings.autoSummarize.get();
    request.tellsRecording = true;
    Transcription parts(*this, stored);
    return runTask(parts.commands.transcribe(std::move(request)));
}

/// `saved` is the recording that is to be transcribed.
ExitCode Composition::recordOnly(const RecordOptions& options, Settings& stored,
                                 std::optional<std::filesystem::path>& saved) {
    auto& settings = stored.settings;
    core::AppState state(loop_);

    pulse::SoundServerLink server(loop_);
    RecorderKit kit({loop_, files_, folders_, settings, state, server});
    auto& recorder = kit.recorder();
    auto& levels = kit.levels();
    const RecordingControls controls{
        [&](auto output) { return recorder.startRecording(std::nullopt, std::move(output)); },
        [&] { return recorder.stopRecording(); },
        [&] { recorder.pauseRecording(); },
        [&] { recorder.resumeRecording(); },
        [&] { return kit.writer().encodingProgress.get(); },
    };
    const RecordCommand::Parts parts{loop_,
                                     files_,
                                     settings,
                                     state,
                                     kit.devices(),
                                     levels.microphoneLevel,
                                     levels.systemAudioLevel,
                                     controls,
                                     kit.incompleteFolder(),
                                     console_};
    RecordCommand command(options, parts, {[this](ExitCode code) { finish(code); }, [this] { leaveAtOnce(); }});
    interrupt_ = [&command] { command.interrupt(); };
    network_->run();
    interrupt_ = nullptr;
    saved = command.savedForMore();
    return code_;
}

}  // namespace tessivox::app
