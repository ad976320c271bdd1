#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "base/StandardFolders.h"

namespace tessivox::posix {

/// Looks up a variable of the environment; absent if it is not set.
using Environment = std::function<std::optional<std::string>(const std::string& name)>;

/// The environment of this process.
Environment processEnvironment();

/// The user's folders by the XDG Base Directory Specification 0.8 and user-dirs.dirs(5). Relative values are ignored,
/// as they ask. Without HOME, the home folder of the user database.
base::StandardFolders standardFolders(const Environment& environment);

/// The user's folder for sockets and locks: XDG_RUNTIME_DIR, which may not exist, else where logins have it; absent
/// where there is none.
std::optional<std::filesystem::path> runtimeFolder(const Environment& environment);

}  // namespace tessivox::posix
