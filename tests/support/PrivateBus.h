#pragma once

#include <filesystem>
#include <string>

#include "support/SoundServer.h"

namespace tessivox::testing {

/// A message bus (dbus-daemon) with a socket in a folder of the test, which it ends with. Throws std::runtime_error if
/// the machine has none.
class PrivateBus {
public:
    explicit PrivateBus(const std::filesystem::path& folder, const std::string& name = "bus");

    const std::string& address() const { return address_; }
    /// Ends it, as the end of a session does.
    void end() { daemon_.stop(15); }
    /// Starts it again at the same address.
    void start();
    /// Lets the bus start a service by running a command; before start().
    void addService(const std::string& service, const std::string& command) const;

private:
    std::filesystem::path folder_;
    std::filesystem::path socket_;
    std::string address_;
    ChildProcess daemon_;
};

}  // namespace tessivox::testing
