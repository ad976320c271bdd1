#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "base/Error.h"
#include "base/Task.h"
#include "base/Units.h"
#include "base/ports/Files.h"
#include "base/ports/LocalTime.h"
#include "library/RecordingStorage.h"

namespace tessivox::app {

/// A recording with what else is known of it.
struct ListedRecording {
    library::Recording recording;
    std::string title;  ///< what the user or the transcript calls it; empty if nothing does
    std::string gist;
    std::uint64_t size = 0;  ///< bytes of the main file
    bool hasTranscript = false;
    bool hasSummary = false;
};

/// "2026-03-02 10:15", in the user's time zone.
std::string dateText(base::WallTime time, const base::LocalTime& localTime);
/// The error of a command whose argument means no recording.
base::Error noRecording(const std::filesystem::path& file);

/// The lines for people, the date in their time zone.
std::string recordingsText(const std::vector<ListedRecording>& recordings, const base::LocalTime& localTime);
/// The array that `--help` describes, indented, with a newline at the end. Names that are not UTF-8 are whole in "url".
std::string recordingsJSON(const std::vector<ListedRecording>& recordings);

/// The recording that a command's argument means: a path, or the name of one in the recordings folder, with or without
/// its ending. It need not exist.
std::filesystem::path meantRecording(const base::Files& files, const std::filesystem::path& recordingsFolder,
                                     const std::filesystem::path& argument);

/// The commands over the recordings of one folder, which the storage has begun to scan. Main thread.
class LibraryCommands {
public:
    struct Parts {
        base::Files& files;
        const base::LocalTime& localTime;
        library::RecordingStorage& storage;
        std::filesystem::path folder;
        Console& console;
        /// Whether another process makes its transcript, which it would put beside the name that it knows.
        std::function<bool(const std::filesystem::path& recording)> isBeingTranscribed;
    };
    explicit LibraryCommands(Parts parts) : parts_(std::move(parts)) {}

    /// `tessivox list`.
    base::Task<ExitCode> list(bool asJSON);
    /// `tessivox rename`.
    base::Task<ExitCode> rename(std::filesystem::path file, std::string name);
    /// `tessivox trash`.
    base::Task<ExitCode> trash(std::filesystem::path file);

private:
    Parts parts_;

    base::Task<std::vector<library::Recording>> scanned();
    base::Task<library::Recording> found(std::filesystem::path file);
    base::Task<library::Recording> foundAtRest(std::filesystem::path file);
    ListedRecording details(library::Recording recording);
};

}  // namespace tessivox::app
