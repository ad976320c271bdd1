#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "base/Task.h"

namespace tessivox::core {

/// What another process may ask of the program that runs. `activate` asks it to come forward.
enum class ProgramRequest { start, stop, pause, resume, toggle, status, activate };

/// What the program does, as others may know it.
struct ProgramStatus {
    bool isRecording = false;
    bool isPaused = false;
    bool isCallDetected = false;
    double seconds = 0;  ///< of the recording that runs
    /// What is being recorded; in the answer to a request that stopped it, what was saved.
    std::optional<std::filesystem::path> file;
    double missingSeconds = 0;  ///< of what was saved: what could not be written

    bool operator==(const ProgramStatus&) const = default;
};

/// Why a request had no success.
struct ProgramFailure {
    enum class Kind {
        noBus,       ///< there is no session bus to reach anybody over
        notRunning,  ///< nobody is there
        noAnswer,    ///< the program does nothing any more
        ended,       ///< it went away before it answered
        refused      ///< the program says why
    };
    Kind kind = Kind::refused;
    std::string sentence;  ///< what the user is told, if it was refused

    bool operator==(const ProgramFailure&) const = default;
};

using ProgramAnswer = std::variant<ProgramStatus, ProgramFailure>;

/// The one program that runs for the user, as seen from another process. Main thread.
class RunningProgram {
public:
    virtual ~RunningProgram() = default;
    /// Asks and waits for the answer: that of a start comes when the recording has started or failed, that of a stop
    /// when it is saved. Never throws.
    virtual base::Task<ProgramAnswer> ask(ProgramRequest request) = 0;
};

}  // namespace tessivox::core
