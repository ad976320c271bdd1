#include "platform/linux/desktop/DesktopEntries.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <system_error>

#include "platform/linux/desktop/ProgramName.h"
#include "platform/linux/desktop/SmallFile.h"
#include "platform/linux/desktop/UntrustedText.h"

namespace tessivox::desktop {
namespace {

using Path = std::filesystem::path;

constexpr std::size_t kLargestFile = 1 << 20;
constexpr int kDeepest = 4;
constexpr const char* kGroup = "Desktop Entry";
constexpr std::string_view kEnding = ".desktop";
/// A folder whose time is no older than this when it is looked through may still change without another time.
constexpr auto kSettled = std::chrono::seconds(2);
/// Of a folder that is not there.
constexpr auto kNever = std::filesystem::file_time_type::min();

/// The words of an Exec line, whose quotes are those of a shell.
std::vector<std::string> wordsOf(const std::string& command) {
    int count = 0;
    char** words = nullptr;
    if (!g_shell_parse_argv(command.c_str(), &count, &words, nullptr)) return {};
    const std::unique_ptr<char*, decltype(&g_strfreev)> owner(words, &g_strfreev);
    return {words, words + count};
}

std::string programOf(const std::string& command) {
    const auto words = wordsOf(command);
    // A browser that shows one page, or a profile of its own, is not the browser's own entry.
    const auto opensPage = [](const std::string& word) {
        return word.starts_with("--app-id=") || word.starts_with("--app=");
    };
    if (std::ranges::any_of(words, opensPage)) return {};
    const auto program = programName(words);
    return program == "flatpak" || program == "snap" || isSoundCommand(program) ? std::string() : program;
}

std::filesystem::file_time_type timeOf(const Path& folder) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(folder, error);
    return error ? kNever : time;
}

}  // namespace

DesktopEntry parseDesktopEntry(std::string id, Path path, const std::string& text) {
    DesktopEntry entry;
    entry.id = std::move(id);
    entry.path = std::move(path);
    const std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file(g_key_file_new(), &g_key_file_unref);
    if (!g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr)) return entry;
    const auto value = [&](const char* key) {
        const std::unique_ptr<char, decltype(&g_free)> found(g_key_file_get_string(file.get(), kGroup, key, nullptr),
                                                             &g_free);
        return std::string(found ? found.get() : "");
    };
    const auto isTrue = [&](const char* key) { return g_key_file_get_boolean(file.get(), kGroup, key, nullptr) != 0; };
    entry.program = safeIdentifier(programOf(value("Exec")));
    entry.flatpak = safeIdentifier(value("X-Flatpak"));
    entry.snap = safeIdentifier(value("X-SnapInstanceName"));
    entry.isHidden = isTrue("Hidden") || isTrue("NoDisplay");
    entry.isTerminal = value("Categories").find("TerminalEmulator") != std::string::npos;
    return entry;
}

std::vector<Path> DesktopEntries::standardFolders() {
    std::vector<Path> folders;
    const auto add = [&](const Path& data) {
        const auto folder = data / "applications";
        if (std::ranges::find(folders, folder) == folders.end()) folders.push_back(folder);
    };
    add(g_get_user_data_dir());
    for (auto folder = g_get_system_data_dirs(); *folder; ++folder) add(*folder);
    // A service or a login shell may not have been told of these.
    add(Path(g_get_user_data_dir()) / "flatpak/exports/share");
    add("/var/lib/flatpak/exports/share");
    add("/var/lib/snapd/desktop");
    return folders;
}

DesktopEntries::DesktopEntries(std::vector<Path> folders) : folders_(std::move(folders)) {}

std::uint64_t DesktopEntries::refresh() {
    if (revision_ > 0 && isUpToDate()) return revision_;
    const auto before = std::move(entries_);
    read();
    if (revision_ == 0 || entries_ != before) ++revision_;
    return revision_;
}

bool DesktopEntries::isUpToDate() const {
    return std::ranges::all_of(times_, [](const auto& each) { return timeOf(each.first) == each.second; });
}

void DesktopEntries::read() {
    times_.clear();
    entries_.clear();
    byID_.clear();
    byProgram_.clear();
    bySandbox_.clear();
    for (const auto& folder : folders_) readFolder(folder, folder, 0);
}

void DesktopEntries::readFolder(const Path& root, const Path& folder, int depth) {
    const auto time = timeOf(folder);
    const auto now = std::filesystem::file_time_type::clock::now();
    const bool isFresh = time <= now && time > now - kSettled;
    times_[folder] = isFresh ? kNever : time;
    std::vector<Path> files;
    std::error_code error;
    for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end; each.increment(error)) {
        std::error_code unknown;
        if (depth < kDeepest && each->is_directory(unknown)) {
            readFolder(root, each->path(), depth + 1);
        } else if (each->path().native().ends_with(kEnding)) {
            files.push_back(each->path());
        }
    }
    std::ranges::sort(files);
    for (const auto& file : files) {
        auto id = file.lexically_relative(root).string();
        id.resize(id.size() - kEnding.size());
        std::ranges::replace(id, '/', '-');
        if (const auto text = readSmallFile(file, kLargestFile))
            add(parseDesktopEntry(safeIdentifier(id), file, *text));
    }
}

void DesktopEntries::add(DesktopEntry entry) {
    const auto place = entries_.size();
    if (!byID_.try_emplace(lowerCased(entry.id), place).second) return;
    const auto index = [&](Index& names, const std::string& name) {
        if (name.empty()) return;
        const auto [known, isNew] = names.try_emplace(lowerCased(name), place);
        // An entry for the menu says more of a program than one for a file type, and one of its name more than others.
        const auto rank = [&](const DesktopEntry& one) {
            return (one.isHidden ? 0 : 1) + (lowerCased(one.id) == lowerCased(name) ? 2 : 0);
        };
        if (!isNew && rank(entry) > rank(entries_[known->second])) known->second = place;
    };
    index(byProgram_, entry.program);
    index(bySandbox_, entry.flatpak);
    index(bySandbox_, entry.snap);
    entries_.push_back(std::move(entry));
}

const DesktopEntry* DesktopEntries::find(const Index& index, std::string_view name) const {
    const auto found = index.find(lowerCased(name));
    return found == index.end() ? nullptr : &entries_[found->second];
}

const DesktopEntry* DesktopEntries::byPath(const Path& path) const {
    const auto found = std::ranges::find(entries_, path, &DesktopEntry::path);
    return found == entries_.end() ? nullptr : &*found;
}

const DesktopEntry* DesktopEntries::byAnyName(std::string_view name) const {
    for (const auto* entry : {byID(name), bySandbox(name), byProgram(name)}) {
        if (entry) return entry;
    }
    return nullptr;
}

}  // namespace tessivox::desktop
