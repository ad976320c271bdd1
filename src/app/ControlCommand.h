#pragma once

#include <functional>
#include <string>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "base/Scheduler.h"
#include "base/Task.h"
#include "core/ports/RunningProgram.h"

namespace tessivox::app {

/// What the commands to the running program work with. Outlives them.
struct ControlParts {
    base::Scheduler& scheduler;
    core::RunningProgram& program;
    std::function<bool()> isSomebodyRunning;  ///< as the lock says
    Console& console;
};

/// `tessivox start`, `stop`, `pause`, `resume`, `toggle` and `status`.
base::Task<ExitCode> controlCommand(ControlOptions options, ControlParts parts);

/// What a second `tessivox run` does: tells the first one. `takesLock` takes the place of the first if that has gone
/// meanwhile; then this ends without a word.
base::Task<ExitCode> reachFirst(ControlParts parts, std::function<bool()> takesLock);

/// The lines for people.
std::string statusText(const core::ProgramStatus& status);
/// The object that `--help` describes, indented, with a newline at the end; without a status, that none runs.
std::string statusJSON(const core::ProgramStatus* status);

}  // namespace tessivox::app
