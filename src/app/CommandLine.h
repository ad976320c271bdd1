#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/Units.h"
#include "core/AudioQuality.h"
#include "core/ports/RunningProgram.h"

namespace tessivox::app {

/// The microphone that `--mic` asks for.
struct MicrophoneChoice {
    enum class Kind { systemDefault, none, named };
    Kind kind = Kind::systemDefault;
    std::string name;  ///< uid or display name, if named

    bool operator==(const MicrophoneChoice&) const = default;
};

/// `tessivox record`. What is absent is as the settings say.
struct RecordOptions {
    std::optional<base::Duration> length;
    std::optional<std::filesystem::path> output;
    std::optional<MicrophoneChoice> microphone;
    std::optional<bool> recordsSystemAudio;
    std::optional<core::AudioQuality> quality;
    bool savesSeparateTracks = false;
    bool transcribes = false;  ///< afterwards
};

/// `tessivox transcribe`. The file is as it was given.
struct TranscribeOptions {
    std::filesystem::path file;
    bool waits = false;
};

/// `tessivox import`. The files are as they were given.
struct ImportOptions {
    std::vector<std::filesystem::path> files;
};

/// `tessivox summarize`. The file is as it was given.
struct SummarizeOptions {
    std::filesystem::path file;
};

/// `tessivox usage`.
struct UsageOptions {};

/// `tessivox devices`.
struct DevicesOptions {
    bool asJSON = false;
};

/// `tessivox run`: the program itself, until it is told to end.
struct RunOptions {
    bool isHeadless = false;
};

/// `tessivox start`, `stop`, `pause`, `resume`, `toggle` and `status`.
struct ControlOptions {
    core::ProgramRequest request = core::ProgramRequest::status;
    bool asJSON = false;
};

/// `tessivox list`.
struct ListOptions {
    bool asJSON = false;
};

enum class ShowFormat { text, markdown, srt, vtt, json };

/// `tessivox show`. The file is as it was given. A summary is in none of the formats of captions.
struct ShowOptions {
    std::filesystem::path file;
    bool isSummary = false;
    ShowFormat format = ShowFormat::text;
};

/// `tessivox rename`. The file is as it was given; the name is the title that the recording is to have.
struct RenameOptions {
    std::filesystem::path file;
    std::string name;
};

/// `tessivox trash`. The file is as it was given.
struct TrashOptions {
    std::filesystem::path file;
};

/// `tessivox get`: one setting, or all.
struct GetOptions {
    std::optional<std::string> key;
};

/// `tessivox set`.
struct SetOptions {
    std::string key;
    std::string value;  ///< may be empty
};

enum class ExcludeAction { list, add, remove };

/// `tessivox exclude`. The applications are as they were given: identifiers, names or desktop files.
struct ExcludeOptions {
    ExcludeAction action = ExcludeAction::list;
    std::vector<std::string> apps;
    bool asJSON = false;
};

/// `tessivox recover`.
struct RecoverOptions {};

/// A text that was asked for.
struct Information {
    std::string text;
};

/// A command line that makes no sense; the sentence says what to do.
struct UsageError {
    std::string sentence;
};

using Command =
    std::variant<RecordOptions, ImportOptions, TranscribeOptions, SummarizeOptions, UsageOptions, DevicesOptions,
                 RunOptions, ControlOptions, ListOptions, ShowOptions, RenameOptions, TrashOptions, RecoverOptions,
                 GetOptions, SetOptions, ExcludeOptions, Information, UsageError>;

struct CommandLine {
    Command command;
    bool isVerbose = false;
    std::optional<std::string> server;            ///< an address that the rules allow
    std::optional<std::filesystem::path> caFile;  ///< certificates to trust beside the system's
};

/// Understands the arguments, without the program's name. Looks at nothing else.
CommandLine parseCommandLine(const std::vector<std::string>& arguments);

/// "30s", "5m", "1h30m", or "90" for seconds. Absent if it is none of these, zero, or over 1000 hours.
std::optional<base::Duration> parseDuration(std::string_view text);

/// Why a summary cannot be shown as captions.
std::string summaryFormatProblem();

/// Why a recording cannot have that name, as a sentence; absent if it can.
std::optional<std::string> outputNameProblem(const std::filesystem::path& output);

}  // namespace tessivox::app
