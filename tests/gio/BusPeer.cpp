#include "BusPeer.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace tessivox::gio {

std::string printed(GVariant* value) {
    char* const text = g_variant_print(value, FALSE);
    std::string result = text;
    g_free(text);
    return result;
}

BusPeer::BusPeer(const std::string& address) {
    g_main_context_push_thread_default(context_);
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    connection_ = g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, nullptr, nullptr);
    g_main_context_pop_thread_default(context_);
    if (!connection_) throw std::runtime_error("no connection to " + address);
}

void BusPeer::turn() {
    while (g_main_context_iteration(context_, FALSE)) continue;
}

void BusPeer::leave() {
    if (!connection_) return;
    for (const auto id : subscriptions_) g_dbus_connection_signal_unsubscribe(connection_, id);
    g_dbus_connection_flush_sync(connection_, nullptr, nullptr);
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    turn();
    g_object_unref(std::exchange(connection_, nullptr));
    turn();
    if (node_) g_dbus_node_info_unref(node_);
    g_main_context_unref(context_);
}

GVariant* BusPeer::ask(const char* method, GVariant* parameters) {
    return g_dbus_connection_call_sync(connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus", method, parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                                       nullptr, nullptr);
}

bool BusPeer::own(const std::string& name) {
    for (int tries = 0; tries < 1000; ++tries) {
        GVariant* const reply = ask("RequestName", g_variant_new("(su)", name.c_str(), 4U));  // not queued
        const auto text = printed(reply);
        g_variant_unref(reply);
        if (text == "(1,)") return true;
    }
    return false;
}

void BusPeer::disown(const std::string& name) {
    g_variant_unref(ask("ReleaseName", g_variant_new("(s)", name.c_str())));
}

void BusPeer::serve(const std::string& path, const std::string& xml, MethodHandler handler) {
    static const GDBusInterfaceVTable table{
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method, GVariant* parameters,
           GDBusMethodInvocation* invocation,
           gpointer self) { static_cast<BusPeer*>(self)->handler_(method, parameters, invocation); },
        nullptr,
        nullptr,
        {}};
    handler_ = std::move(handler);
    node_ = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
    g_main_context_push_thread_default(context_);
    for (auto** interface = node_->interfaces; *interface; ++interface)
        g_dbus_connection_register_object(connection_, path.c_str(), *interface, &table, this, nullptr, nullptr);
    g_main_context_pop_thread_default(context_);
}

void BusPeer::emit(const std::string& path, const std::string& interface, const std::string& signal,
                   GVariant* parameters) {
    g_dbus_connection_emit_signal(connection_, nullptr, path.c_str(), interface.c_str(), signal.c_str(), parameters,
                                  nullptr);
}

std::shared_ptr<BusPeer::Call> BusPeer::call(const std::string& destination, const std::string& path,
                                             const std::string& interface, const std::string& method,
                                             GVariant* parameters) {
    const auto call = std::make_shared<Call>();
    const auto onDone = +[](GObject* source, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<std::shared_ptr<Call>> kept(static_cast<std::shared_ptr<Call>*>(data));
        auto& told = **kept;
        GError* error = nullptr;
        GVariant* const value = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        told.isDone = true;
        if (value) {
            told.value = printed(value);
            g_variant_unref(value);
            return;
        }
        char* const name = g_dbus_error_get_remote_error(error);
        told.error = name ? name : "";
        g_free(name);
        g_dbus_error_strip_remote_error(error);
        told.message = error->message;
        g_error_free(error);
    };
    g_main_context_push_thread_default(context_);
    g_dbus_connection_call(connection_, destination.c_str(), path.c_str(), interface.c_str(), method.c_str(),
                           parameters, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, onDone,
                           new std::shared_ptr<Call>(call));
    g_main_context_pop_thread_default(context_);
    return call;
}

std::shared_ptr<std::vector<std::string>> BusPeer::signalsOf(const std::string& interface, const std::string& signal) {
    using Texts = std::vector<std::string>;
    const auto texts = std::make_shared<Texts>();
    const auto onSignal =
        +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
            gpointer data) { (*static_cast<std::shared_ptr<Texts>*>(data))->push_back(printed(parameters)); };
    const auto release = +[](gpointer data) { delete static_cast<std::shared_ptr<Texts>*>(data); };
    g_main_context_push_thread_default(context_);
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(connection_, nullptr, interface.c_str(), signal.c_str(),
                                                                nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onSignal,
                                                                new std::shared_ptr<Texts>(texts), release));
    g_main_context_pop_thread_default(context_);
    g_variant_unref(ask("GetId", nullptr));  // once it answers, it has the subscription too
    return texts;
}

}  // namespace tessivox::gio
