#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tessivox::detection {

/// The application that a process belongs to. Only what the desktop knows as one is: a desktop entry, a Flatpak or a
/// snap; never an interpreter or a plain command.
struct HostApp {
    std::string bundleID;
    std::filesystem::path url;  ///< its desktop file

    bool operator==(const HostApp&) const = default;
};

/// A running application, as the user knows it.
struct RunningApplication {
    bool isRegular = false;  ///< has windows and a name of its own, unlike a helper or a command
    bool isActive = false;   ///< its window has the focus; false where nobody can tell
    std::string localizedName;
};

struct InstalledApplication {
    std::string bundleID;
    std::string name;  ///< in the user's language
    std::filesystem::path url;
};

/// What is installed and runs on this desktop. Identifiers are those that InputProcess carries. Main thread; reads a
/// few small files at most, never throws.
class Applications {
public:
    virtual ~Applications() = default;

    virtual std::optional<HostApp> hostApp(std::int32_t pid) const = 0;
    virtual std::optional<RunningApplication> runningApplication(std::int32_t pid) const = 0;
    /// Where the application lies; absent if it is not installed.
    virtual std::optional<std::filesystem::path> urlForApplication(const std::string& bundleID) const = 0;
    /// Identifier of the application at that place; absent if there is none.
    virtual std::optional<std::string> bundleIdentifier(const std::filesystem::path& url) const = 0;
    /// Its name in the user's language.
    virtual std::optional<std::string> bundleDisplayName(const std::filesystem::path& url) const = 0;
    /// Name or path of its icon, as icon themes understand it; empty if it has none.
    virtual std::string iconName(const std::filesystem::path& url) const = 0;
    /// What the user may choose from, by name.
    virtual std::vector<InstalledApplication> installed() const = 0;
};

}  // namespace tessivox::detection
