#include "platform/linux/gio/BusAddresses.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "base/Text.h"

namespace tessivox::gio {
namespace {

constexpr std::string_view kStartsABus = "autolaunch:";
constexpr const char* kSystemBus = "unix:path=/var/run/dbus/system_bus_socket";

std::string socketIn(const std::optional<std::string>& folder) {
    if (!folder || folder->empty()) return {};
    const auto socket = std::filesystem::path(*folder) / "bus";
    std::error_code error;
    const bool isThere = std::filesystem::is_socket(socket, error);
    return isThere ? "unix:path=" + base::percentEncoded(socket.native()) : std::string();
}

}  // namespace

BusAddresses busAddresses(const std::function<std::optional<std::string>(const std::string& name)>& environment) {
    BusAddresses addresses;
    addresses.session = environment("DBUS_SESSION_BUS_ADDRESS").value_or("");
    if (addresses.session.empty()) addresses.session = socketIn(environment("XDG_RUNTIME_DIR"));
    if (addresses.session.starts_with(kStartsABus)) addresses.session.clear();
    addresses.system = environment("DBUS_SYSTEM_BUS_ADDRESS").value_or("");
    if (addresses.system.empty()) addresses.system = kSystemBus;
    return addresses;
}

}  // namespace tessivox::gio
