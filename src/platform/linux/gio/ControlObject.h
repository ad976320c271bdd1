#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <map>
#include <memory>

#include "base/Signal.h"
#include "core/ports/RunningProgram.h"
#include "platform/linux/gio/BusConnection.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

class ControlService;

/// The object on the session bus that stands for the running program. Bus thread.
class ControlObject {
public:
    ControlObject(BusThread& bus, WayHome<ControlService> home, core::ProgramStatus status)
        : bus_(bus), home_(std::move(home)), status_(std::move(status)) {}
    ControlObject(const ControlObject&) = delete;
    ControlObject& operator=(const ControlObject&) = delete;
    ~ControlObject();

    void begin();
    /// Tells everybody what has changed.
    void showStatus(const core::ProgramStatus& status);
    /// Answers a request; once each.
    void answer(std::uint64_t token, const core::ProgramAnswer& outcome);

private:
    struct NodeRelease {
        void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
    };

    BusThread& bus_;
    WayHome<ControlService> home_;
    core::ProgramStatus status_;
    std::unique_ptr<GDBusNodeInfo, NodeRelease> node_;
    std::map<std::uint64_t, GDBusMethodInvocation*> waiting_;
    std::uint64_t lastToken_ = 0;
    bool isOnBus_ = false;
    bool hasComplained_ = false;
    BusScope scope_;
    base::Subscription exports_[2];
    base::Subscription state_;

    void follow(BusConnection::State state);
    base::Subscription exportInterface(const char* interface);
    void askForName();
    void complain(const char* english);
    void onCall(const std::string& interface, const std::string& method, GVariant* parameters,
                GDBusMethodInvocation* invocation);
    void onApplicationCall(const std::string& method, GVariant* parameters, GDBusMethodInvocation* invocation);
    void forward(core::ProgramRequest request, GDBusMethodInvocation* invocation);
    std::uint64_t keep(GDBusMethodInvocation* invocation);
};

}  // namespace tessivox::gio
