#include "support/PrivateBus.h"

#include <fstream>
#include <stdexcept>

namespace tessivox::testing {

PrivateBus::PrivateBus(const std::filesystem::path& folder, const std::string& name)
    : folder_(folder / (name + ".d")), socket_(folder / name), address_("unix:path=" + socket_.string()) {
    std::filesystem::create_directories(folder_ / "services");
    std::ofstream(folder_ / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><listen>"
        << address_ << "</listen><auth>EXTERNAL</auth><servicedir>" << (folder_ / "services").string()
        << "</servicedir><policy context=\"default\"><allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
           "<allow own=\"*\"/></policy></busconfig>\n";
    start();
}

void PrivateBus::start() {
    std::filesystem::remove(socket_);
    // Root is told on standard error that it has no more descriptors than anybody.
    daemon_ = ChildProcess({"sh", "-c", "exec dbus-daemon --nofork --print-address=1 --config-file=\"$0\" 2>/dev/null",
                            (folder_ / "bus.conf").string()},
                           {});
    if (daemon_.readLine().empty()) throw std::runtime_error("no message bus: install the package dbus");
}

void PrivateBus::addService(const std::string& service, const std::string& command) const {
    std::ofstream(folder_ / "services" / (service + ".service"))
        << "[D-BUS Service]\nName=" << service << "\nExec=" << command << "\n";
}

}  // namespace tessivox::testing
