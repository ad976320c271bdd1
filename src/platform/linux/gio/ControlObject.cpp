#include "platform/linux/gio/ControlObject.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "base/Text.h"
#include "platform/linux/gio/ControlProtocol.h"
#include "platform/linux/gio/ControlService.h"

namespace tessivox::gio {
namespace {

using core::ProgramFailure;
using core::ProgramRequest;
using core::ProgramStatus;

constexpr const char* kInterfaces = R"(<node>
  <interface name="com.tessivox.Tessivox">
    <method name="Start"><arg name="status" type="a{sv}" direction="out"/></method>
    <method name="Stop"><arg name="status" type="a{sv}" direction="out"/></method>
    <method name="Pause"><arg name="status" type="a{sv}" direction="out"/></method>
    <method name="Resume"><arg name="status" type="a{sv}" direction="out"/></method>
    <method name="Toggle"><arg name="status" type="a{sv}" direction="out"/></method>
    <method name="Status"><arg name="status" type="a{sv}" direction="out"/></method>
    <property name="Recording" type="b" access="read"/>
    <property name="Paused" type="b" access="read"/>
    <property name="CallDetected" type="b" access="read"/>
    <property name="File" type="s" access="read"/>
  </interface>
  <interface name="org.freedesktop.Application">
    <method name="Activate"><arg name="platform_data" type="a{sv}" direction="in"/></method>
    <method name="Open">
      <arg name="uris" type="as" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg name="action_name" type="s" direction="in"/>
      <arg name="parameter" type="av" direction="in"/>
      <arg name="platform_data" type="a{sv}" direction="in"/>
    </method>
  </interface>
</node>)";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr guint32 kIsOwner = 1;  // what RequestName says to the first
/// Those of the properties that change by events.
constexpr const char* kProperties[] = {"Recording", "Paused", "CallDetected", "File"};

std::vector<std::filesystem::path> localFiles(GVariant* uris) {
    std::vector<std::filesystem::path> files;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, uris);
    for (const char* uri = nullptr; g_variant_iter_next(&iterator, "&s", &uri);) {
        char* const path = g_filename_from_uri(uri, nullptr, nullptr);
        if (path) files.emplace_back(path);
        g_free(path);
    }
    return files;
}

/// The values that differ, by name; null if none does. Floating.
GVariant* changes(const ProgramStatus& before, const ProgramStatus& after) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    bool isEmpty = true;
    for (const auto* name : kProperties) {
        const Variant old(g_variant_ref_sink(valueOf(before, name)));
        const Variant now(g_variant_ref_sink(valueOf(after, name)));
        if (g_variant_equal(old.get(), now.get())) continue;
        g_variant_builder_add(&builder, "{sv}", name, now.get());
        isEmpty = false;
    }
    const Variant all(g_variant_ref_sink(g_variant_builder_end(&builder)));
    return isEmpty ? nullptr : g_variant_new("(s@a{sv}as)", kControlInterface, all.get(), nullptr);
}

}  // namespace

ControlObject::~ControlObject() {
    const auto sentence = base::localized("Tessivox ended before this was done.");
    for (const auto& [token, invocation] : waiting_)
        g_dbus_method_invocation_return_dbus_error(invocation, kRefusedError, sentence.c_str());
    if (isOnBus_) bus_.session().tell({kBus, kBusPath, kBus, "ReleaseName", "(u)"}, g_variant_new("(s)", kControlName));
}

void ControlObject::begin() {
    node_.reset(g_dbus_node_info_new_for_xml(kInterfaces, nullptr));
    state_ = bus_.session().state.observe([this](BusConnection::State state) { follow(state); });
    bus_.session().connect();
}

void ControlObject::follow(BusConnection::State state) {
    isOnBus_ = state == BusConnection::State::open;
    if (isOnBus_) {
        exports_[0] = exportInterface(kControlInterface);
        exports_[1] = exportInterface(kApplicationInterface);
        askForName();
    } else if (state == BusConnection::State::absent) {
        complain(
            "There is no session bus, so that commands like \"tessivox start\" cannot reach this program: start it "
            "inside a desktop session, or with dbus-run-session.");
    }
}

base::Subscription ControlObject::exportInterface(const char* interface) {
    static constexpr GDBusInterfaceVTable kTable{
        [](GDBusConnection*, const gchar*, const gchar*, const gchar* called, const gchar* method, GVariant* parameters,
           GDBusMethodInvocation* invocation,
           gpointer self) { static_cast<ControlObject*>(self)->onCall(called, method, parameters, invocation); },
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* property, GError**, gpointer self) {
            return valueOf(static_cast<ControlObject*>(self)->status_, property);
        },
        nullptr,
        {}};
    const std::shared_ptr<GDBusConnection> connection(G_DBUS_CONNECTION(g_object_ref(bus_.session().get())),
                                                      g_object_unref);
    const auto id = g_dbus_connection_register_object(connection.get(), kControlPath,
                                                      g_dbus_node_info_lookup_interface(node_.get(), interface),
                                                      &kTable, this, nullptr, nullptr);
    return base::Subscription([connection, id] { g_dbus_connection_unregister_object(connection.get(), id); });
}

/// Without replacement: the first one keeps the name, and who waits gets it when it is free.
void ControlObject::askForName() {
    bus_.session().call({kBus, kBusPath, kBus, "RequestName", "(u)"}, g_variant_new("(su)", kControlName, 0U), scope_,
                        [this](const BusReply& reply) {
                            guint32 answer = kIsOwner;
                            if (reply.value) g_variant_get(reply.value.get(), "(u)", &answer);
                            if (answer != kIsOwner)
                                complain(
                                    "Another program has the name com.tessivox.Tessivox on the session bus, so that "
                                    "commands like \"tessivox start\" reach that one: end it.");
                        });
}

void ControlObject::complain(const char* english) {
    if (std::exchange(hasComplained_, true)) return;
    home_([sentence = base::localized(english)](ControlService& service) { service.handlers_.say(sentence); });
}

void ControlObject::onCall(const std::string& interface, const std::string& method, GVariant* parameters,
                           GDBusMethodInvocation* invocation) {
    if (interface == kApplicationInterface) return onApplicationCall(method, parameters, invocation);
    if (const auto request = requestOf(method.c_str())) forward(*request, invocation);
}

void ControlObject::onApplicationCall(const std::string& method, GVariant* parameters,
                                      GDBusMethodInvocation* invocation) {
    if (method == "Activate") return forward(ProgramRequest::activate, invocation);
    const Variant first(g_variant_get_child_value(parameters, 0));
    if (method == "Open") {
        home_([token = keep(invocation), files = localFiles(first.get())](ControlService& service) {
            service.takeFiles(token, files);
        });
    } else if (const auto request = requestOf(g_variant_get_string(first.get(), nullptr))) {
        forward(*request, invocation);
    } else {
        const auto sentence = base::localized("Tessivox knows no action of this name.");
        g_dbus_method_invocation_return_dbus_error(invocation, kRefusedError, sentence.c_str());
    }
}

void ControlObject::forward(ProgramRequest request, GDBusMethodInvocation* invocation) {
    home_([token = keep(invocation), request](ControlService& service) { service.take(token, request); });
}

std::uint64_t ControlObject::keep(GDBusMethodInvocation* invocation) {
    waiting_.emplace(++lastToken_, invocation);
    return lastToken_;
}

void ControlObject::answer(std::uint64_t token, const core::ProgramAnswer& outcome) {
    const auto found = waiting_.find(token);
    if (found == waiting_.end()) return;
    GDBusMethodInvocation* const invocation = found->second;
    waiting_.erase(found);
    if (const auto* failure = std::get_if<ProgramFailure>(&outcome)) {
        const auto sentence = base::repairedUTF8(failure->sentence);
        return g_dbus_method_invocation_return_dbus_error(invocation, kRefusedError, sentence.c_str());
    }
    const bool hasStatus = requestOf(g_dbus_method_invocation_get_method_name(invocation)).has_value();
    auto* const status = hasStatus ? g_variant_new("(@a{sv})", variantOf(std::get<ProgramStatus>(outcome))) : nullptr;
    g_dbus_method_invocation_return_value(invocation, status);
}

void ControlObject::showStatus(const ProgramStatus& status) {
    GVariant* const changed = changes(std::exchange(status_, status), status);
    if (!changed) return;
    if (!isOnBus_) return g_variant_unref(g_variant_ref_sink(changed));
    g_dbus_connection_emit_signal(bus_.session().get(), nullptr, kControlPath, "org.freedesktop.DBus.Properties",
                                  "PropertiesChanged", changed, nullptr);
}

}  // namespace tessivox::gio
