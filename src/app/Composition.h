#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "app/CommandLine.h"
#include "app/ControlCommand.h"
#include "app/ExitCode.h"
#include "app/LibraryCommands.h"
#include "app/TerminalConsole.h"
#include "base/StandardFolders.h"
#include "base/Task.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/SignalWatch.h"
#include "platform/linux/posix/Terminal.h"

namespace tessivox::core {
class JsonPreferences;
}

namespace tessivox::app {

class NetworkLoop;

/// Makes every object of the program, in the order in which they need each other, and runs one command over them. Made
/// before any thread.
class Composition {
public:
    explicit Composition(const CommandLine& line);
    Composition(const Composition&) = delete;
    Composition& operator=(const Composition&) = delete;
    ~Composition();

    ExitCode record(const RecordOptions& options);
    ExitCode transcribe(const TranscribeOptions& options);
    ExitCode summarize(const SummarizeOptions& options);
    ExitCode usage();
    ExitCode importFiles(const ImportOptions& options);
    ExitCode listDevices(const DevicesOptions& options);
    ExitCode list(const ListOptions& options);
    ExitCode show(const ShowOptions& options);
    ExitCode rename(const RenameOptions& options);
    ExitCode trash(const TrashOptions& options);
    ExitCode recover();
    ExitCode get(const GetOptions& options);
    ExitCode set(const SetOptions& options);
    ExitCode exclude(const ExcludeOptions& options);
    /// The program itself, without windows, until a signal ends it.
    ExitCode run();
    /// Asks that program for something.
    ExitCode control(const ControlOptions& options);

private:
    struct Settings;
    struct Library;
    struct Transcription;

    posix::EventLoop loop_;
    const std::optional<std::string> server_;
    const std::unique_ptr<NetworkLoop> network_;
    std::function<void()> interrupt_;  ///< what a signal to stop does
    bool isInterrupted_ = false;
    const bool ignoresHangup_;  ///< so that nohup keeps its word
    posix::SignalWatch signals_;
    posix::PosixFiles files_;
    base::StandardFolders folders_;
    std::optional<posix::Terminal> terminal_;
    TerminalConsole console_;
    ExitCode code_ = ExitCode::failed;

    void onSignal(int signal);
    void finish(ExitCode code);
    [[noreturn]] void leaveAtOnce();
    base::Task<void> finishWith(base::Task<ExitCode> command);
    ExitCode runTask(base::Task<ExitCode> command);
    ExitCode changeRecording(
        const std::filesystem::path& file,
        const std::function<base::Task<ExitCode>(LibraryCommands&, std::filesystem::path)>& change);
    ExitCode withLibrary(core::AppSettings& settings,
                         const std::function<base::Task<ExitCode>(LibraryCommands&)>& command);
    ExitCode recordOnly(const RecordOptions& options, Settings& stored, std::optional<std::filesystem::path>& saved);
    base::Task<ExitCode> onceSaved(const core::JsonPreferences& store, ExitCode code);
    std::unique_ptr<base::File> takeLock();
    bool isSomebodyRunning();
    ExitCode askRunning(const std::function<base::Task<ExitCode>(const ControlParts&)>& command);
};

}  // namespace tessivox::app
