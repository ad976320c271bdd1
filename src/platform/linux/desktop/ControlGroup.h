#pragma once

#include <optional>
#include <string>

namespace tessivox::desktop {

/// Whom a desktop has started a process for, by the name of its control group.
struct GroupOwner {
    enum class Kind { desktopEntry, flatpak, snap };
    Kind kind = Kind::desktopEntry;
    std::string id;

    bool operator==(const GroupOwner&) const = default;
};

/// From the lines of /proc/PID/cgroup: "app-LAUNCHER-ID-RANDOM.scope" and the like, as desktops name them
/// (https://systemd.io/DESKTOP_ENVIRONMENTS), or snapd's "snap.NAME.APP...". Absent if it is none of these.
std::optional<GroupOwner> ownerOfGroups(const std::string& lines);

}  // namespace tessivox::desktop
