#pragma once

#include <filesystem>

#include "app/Console.h"
#include "app/ExitCode.h"
#include "app/RecoveryRun.h"

namespace tessivox::app {

/// `tessivox recover`: writes the path of each recording that came back to standard output, and tells how far it is on
/// a terminal.
base::Task<ExitCode> recoverCommand(RecoveryRun& recovery, std::filesystem::path incompleteFolder,
                                    std::filesystem::path recordingsFolder, Console& console);

}  // namespace tessivox::app
