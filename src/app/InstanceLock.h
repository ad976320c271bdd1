#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "base/ports/Files.h"

namespace tessivox::app {

/// Makes sure that one `run` serves a user: the lock holds as long as the file is open, so that the kernel frees it
/// whatever ends the process. Null if another process holds it. `runtimeFolder` is the session's folder for such files,
/// which must be there; without one `stateFolder` is used, and made if missing. Throws base::Error, with a sentence
/// that says what to do, if the file cannot be made.
std::unique_ptr<base::File> takeInstanceLock(base::Files& files,
                                             const std::optional<std::filesystem::path>& runtimeFolder,
                                             const std::filesystem::path& stateFolder);

}  // namespace tessivox::app
