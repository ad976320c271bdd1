#pragma once

#include <functional>
#include <optional>
#include <string>

namespace tessivox::gio {

/// Where the buses are (D-Bus Specification, "Server Addresses"); empty for one that is not there.
struct BusAddresses {
    std::string session;
    std::string system;
};

/// As the environment says: DBUS_SESSION_BUS_ADDRESS, else the socket "bus" in XDG_RUNTIME_DIR if there is one;
/// DBUS_SYSTEM_BUS_ADDRESS, else the usual place. A session bus is never started for our sake.
BusAddresses busAddresses(const std::function<std::optional<std::string>(const std::string& name)>& environment);

}  // namespace tessivox::gio
