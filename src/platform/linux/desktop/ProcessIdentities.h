#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/linux/desktop/DesktopEntries.h"
#include "platform/linux/desktop/ProcessFiles.h"

namespace tessivox::desktop {

/// What a sound server knows of the process at the other end of a stream. Any of it may be missing, or a lie.
struct ProcessClues {
    std::int32_t pid = 0;          ///< as the process counts itself: in a sandbox, by the sandbox's numbers
    std::int32_t securityPID = 0;  ///< as the kernel told the server
    std::string binary;
    std::string applicationID;
    std::string portalID;
};

struct Identity {
    std::string identifier;  ///< as the tables of calls and exclusions write it; else as the application calls itself
    std::int32_t pid = 0;    ///< as this system counts; 0 if it is not known
    std::string name;        ///< what the application calls itself here
    std::filesystem::path entry;  ///< its desktop file, if it has one
    bool isApplication = false;   ///< a desktop entry, a Flatpak or a snap

    bool operator==(const Identity&) const = default;
};

/// Tells which application a process belongs to. The first of these that is known counts: the portal's word, Flatpak's
/// file in the sandbox, the snap or control group it was started in, the application's own word, a desktop entry that
/// starts its program, and the program. Main thread; a process that was looked at before costs one small read.
class ProcessIdentities {
public:
    explicit ProcessIdentities(DesktopEntries& entries, ProcessFiles processes = ProcessFiles())
        : entries_(entries), processes_(std::move(processes)) {}

    /// Absent for what is never in a call: parts of the desktop's sound, and this program.
    std::optional<Identity> identify(const ProcessClues& clues);
    /// The same of a process about which identify() was asked before, or by its number alone.
    std::optional<Identity> identify(std::int32_t pid);

    /// Identifier of an installed application.
    static std::string identifierOf(const DesktopEntry& entry);
    /// The installed application that goes by the identifier; null if there is none.
    const DesktopEntry* entryFor(const std::string& identifier);

private:
    struct Found {
        std::string name;
        const DesktopEntry* entry = nullptr;
        bool isSandboxed = false;
    };
    struct Cached {
        std::uint64_t startTime = 0;
        std::uint64_t revision = 0;
        std::optional<Identity> identity;
    };
    using Search = std::optional<Found>;

    DesktopEntries& entries_;
    ProcessFiles processes_;
    std::map<std::int32_t, Cached> cache_;

    std::int32_t hostPID(const ProcessClues& clues) const;
    bool runs(std::int32_t pid, const std::string& binary) const;
    std::int32_t application(std::int32_t pid) const;
    std::string programOf(std::int32_t pid) const;
    std::optional<Identity> identityOf(const ProcessClues& clues, std::int32_t pid) const;
    Search search(const ProcessClues& clues, std::int32_t pid, const std::string& program) const;
    Search sandboxed(const std::string& name) const;
    Search bySnap(std::int32_t pid) const;
    Search byGroup(std::int32_t pid, const std::string& program) const;
    Search byProgram(const std::string& program) const;
    void remember(std::int32_t pid, const std::optional<Identity>& identity);
};

}  // namespace tessivox::desktop
