#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::desktop {

/// What an application's desktop file says of how it is started
/// (https://specifications.freedesktop.org/desktop-entry-spec).
struct DesktopEntry {
    std::string id;  ///< without ".desktop"
    std::filesystem::path path;
    std::string program;  ///< what it starts, without folders; empty where that says nothing: a web page in a browser
    std::string flatpak;
    std::string snap;
    bool isHidden = false;    ///< removed, or not for menus
    bool isTerminal = false;  ///< runs other programs, which are not it

    bool operator==(const DesktopEntry&) const = default;
    /// What the application calls itself here: its Flatpak, its snap, or its entry.
    const std::string& name() const { return !flatpak.empty() ? flatpak : !snap.empty() ? snap : id; }
};

/// The desktop files of this user and system, looked through once, and again after a folder has changed. Names are
/// found in small letters or large. Pointers hold until refresh().
class DesktopEntries {
public:
    /// Folders "applications", those that come first hide files of the same name in others.
    explicit DesktopEntries(std::vector<std::filesystem::path> folders = standardFolders());

    static std::vector<std::filesystem::path> standardFolders();

    /// Looks at the folders' times, and at their files if one has changed. The number changes with the entries.
    std::uint64_t refresh();

    const std::vector<DesktopEntry>& all() const { return entries_; }
    const DesktopEntry* byID(std::string_view id) const { return find(byID_, id); }
    const DesktopEntry* byProgram(std::string_view program) const { return find(byProgram_, program); }
    /// By the name of a Flatpak or snap.
    const DesktopEntry* bySandbox(std::string_view name) const { return find(bySandbox_, name); }
    const DesktopEntry* byPath(const std::filesystem::path& path) const;
    /// By any of these.
    const DesktopEntry* byAnyName(std::string_view name) const;

private:
    using Index = std::map<std::string, std::size_t, std::less<>>;
    using Times = std::map<std::filesystem::path, std::filesystem::file_time_type>;

    std::vector<std::filesystem::path> folders_;
    Times times_;  ///< of every folder when it was looked through
    std::uint64_t revision_ = 0;
    std::vector<DesktopEntry> entries_;
    Index byID_;
    Index byProgram_;
    Index bySandbox_;

    bool isUpToDate() const;
    void read();
    void readFolder(const std::filesystem::path& root, const std::filesystem::path& folder, int depth);
    void add(DesktopEntry entry);
    const DesktopEntry* find(const Index& index, std::string_view name) const;
};

/// The entry that a desktop file's text describes; without a program if it starts none.
DesktopEntry parseDesktopEntry(std::string id, std::filesystem::path path, const std::string& text);

}  // namespace tessivox::desktop
