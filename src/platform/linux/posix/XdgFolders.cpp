#include "platform/linux/posix/XdgFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

namespace tessivox::posix {
namespace {

using Path = std::filesystem::path;

std::optional<Path> absolutePath(const Environment& environment, const std::string& name) {
    const auto value = environment(name);
    if (!value || !value->starts_with('/')) return std::nullopt;
    return Path(*value);
}

Path homeOfUserDatabase() {
    std::array<char, 16384> buffer;
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir) {
        return found->pw_dir;
    }
    return "/";
}

/// Undoes the shell's quoting within double quotes; stops at the closing one.
std::string unquoted(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        result += text[at];
    }
    return result;
}

/// The folder of one line `XDG_NAME_DIR="$HOME/…"` or `="/…"`; absent if it is another line.
std::optional<Path> userFolder(std::string_view line, std::string_view name, const Path& home) {
    constexpr std::string_view kHome = "$HOME";
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(name)) return std::nullopt;
    line.remove_prefix(name.size());
    if (!line.starts_with("=\"")) return std::nullopt;
    line.remove_prefix(2);
    const bool underHome = line.starts_with("$HOME/") || line.starts_with("$HOME\"");
    const auto value = unquoted(underHome ? line.substr(kHome.size()) : line);
    if (underHome) return Path(home.native() + value);
    if (!value.starts_with('/')) return std::nullopt;
    return Path(value);
}

Path documentsFolder(const Path& configuration, const Path& home) {
    std::ifstream file(configuration / "user-dirs.dirs");
    Path result = home / "Documents";
    for (std::string line; std::getline(file, line);) {
        if (const auto folder = userFolder(line, "XDG_DOCUMENTS_DIR", home)) result = *folder;
    }
    return result;
}

}  // namespace

Environment processEnvironment() {
    return [](const std::string& name) -> std::optional<std::string> {
        const char* value = std::getenv(name.c_str());
        if (!value) return std::nullopt;
        return value;
    };
}

base::StandardFolders standardFolders(const Environment& environment) {
    const auto named = absolutePath(environment, "HOME");
    const auto home = named ? *named : homeOfUserDatabase();
    base::StandardFolders folders;
    folders.configuration = absolutePath(environment, "XDG_CONFIG_HOME").value_or(home / ".config");
    folders.applicationSupport = absolutePath(environment, "XDG_DATA_HOME").value_or(home / ".local/share");
    folders.temporary = absolutePath(environment, "TMPDIR").value_or("/tmp");
    folders.state = absolutePath(environment, "XDG_STATE_HOME").value_or(home / ".local/state");
    folders.documents = documentsFolder(folders.configuration, home);
    return folders;
}

std::optional<Path> runtimeFolder(const Environment& environment) {
    if (auto named = absolutePath(environment, "XDG_RUNTIME_DIR")) return named;
    // Where a login has it, so that a start from cron or "su -" looks in the same place as one from the desktop.
    const auto own = Path("/run/user") / std::to_string(::getuid());
    std::error_code ignored;
    return std::filesystem::is_directory(own, ignored) ? std::optional(own) : std::nullopt;
}

}  // namespace tessivox::posix
