#pragma once

#include <filesystem>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "base/Task.h"
#include "base/ports/Files.h"
#include "base/ports/LocalTime.h"

namespace tessivox::app {

/// `tessivox show`: writes a transcript or a summary to standard output, in the format that was asked for, without the
/// control characters that would steer a terminal. Throws base::Error with a sentence that says how to get what is not
/// there. Main thread.
base::Task<ExitCode> showCommand(base::Files& files, const base::LocalTime& localTime,
                                 std::filesystem::path recordingsFolder, ShowOptions options, Console& console);

}  // namespace tessivox::app
