#include "platform/linux/gio/BusConnection.h"

#include <climits>
#include <utility>

namespace tessivox::gio {
namespace {

struct ErrorRelease {
    void operator()(GError* error) const { g_error_free(error); }
};
using Failure = std::unique_ptr<GError, ErrorRelease>;

/// A call on its way. It is counted until its answer has come.
struct PendingCall {
    std::function<void(BusReply)> onReply;
    std::shared_ptr<GCancellable> cancellable;
    std::shared_ptr<int> count;

    PendingCall(std::function<void(BusReply)> handler, const BusScope& scope, std::shared_ptr<int> counter)
        : onReply(std::move(handler)),
          cancellable(G_CANCELLABLE(g_object_ref(scope.cancellable())), g_object_unref),
          count(std::move(counter)) {
        ++*count;
    }
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;
    ~PendingCall() { --*count; }
    bool isTakenBack() const { return g_cancellable_is_cancelled(cancellable.get()) != FALSE; }
};

BusReply::Failure kindOf(const GError* error) {
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER))
        return BusReply::Failure::noOwner;
    // The bus says "no reply" on behalf of somebody who left; we set no time limits.
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
        g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED))
        return BusReply::Failure::ended;
    return BusReply::Failure::other;
}

void onCallDone(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<PendingCall> call(static_cast<PendingCall*>(data));
    GError* error = nullptr;
    GUnixFDList* descriptors = nullptr;
    BusReply reply;
    reply.value.reset(
        g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(source), &descriptors, result, &error));
    const Failure failure(error);
    if (descriptors) reply.descriptors.reset(descriptors, g_object_unref);
    if (error) {
        reply.failure = kindOf(error);
        g_dbus_error_strip_remote_error(error);
        reply.message = error->message;
    }
    if (!call->isTakenBack()) call->onReply(std::move(reply));
}

struct SignalHook {
    BusConnection::SignalHandler handler;
    std::string expectedType;
};

void onSignalReceived(GDBusConnection*, const gchar* sender, const gchar*, const gchar*, const gchar*,
                      GVariant* parameters, gpointer data) {
    const auto& hook = *static_cast<SignalHook*>(data);
    if (sender && hook.expectedType == g_variant_get_type_string(parameters)) hook.handler(sender, parameters);
}

using NameHandler = std::function<void(const std::string& owner)>;

}  // namespace

/// A connection that is being made.
struct PendingConnect {
    BusConnection* connection;
    PendingCall call;

    static void onDone(GObject*, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<PendingConnect> pending(static_cast<PendingConnect*>(data));
        GDBusConnection* const made = g_dbus_connection_new_for_address_finish(result, nullptr);
        if (!pending->call.isTakenBack())
            pending->connection->take(made);
        else if (made)
            g_object_unref(made);
    }
};

void BusConnection::end() {
    scope_.reset();
    drop();
}

void BusConnection::connect() {
    if (state.get() == State::connecting || state.get() == State::open) return;
    drop();
    if (address_.empty()) return state.set(State::absent);
    state.set(State::connecting);
    auto* pending = new PendingConnect{this, {nullptr, *scope_, pendingCalls_}};
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_dbus_connection_new_for_address(address_.c_str(), flags, nullptr, scope_->cancellable(), &PendingConnect::onDone,
                                      pending);
}

void BusConnection::take(GDBusConnection* connection) {
    if (!connection) return state.set(State::absent);
    connection_.reset(connection, g_object_unref);
    const auto onClosed = +[](GDBusConnection*, gboolean, GError*, gpointer self) {
        static_cast<BusConnection*>(self)->state.set(State::lost);
    };
    closedHandler_ = g_signal_connect(connection, "closed", G_CALLBACK(onClosed), this);
    state.set(g_dbus_connection_is_closed(connection) ? State::lost : State::open);
}

void BusConnection::drop() {
    if (!connection_) return;
    g_signal_handler_disconnect(connection_.get(), closedHandler_);
    connection_.reset();
}

void BusConnection::call(const BusMethod& method, GVariant* parameters, const BusScope& scope,
                         std::function<void(BusReply)> onReply) {
    auto* call = new PendingCall(std::move(onReply), scope, pendingCalls_);
    const auto flags = method.startsService ? G_DBUS_CALL_FLAGS_NONE : G_DBUS_CALL_FLAGS_NO_AUTO_START;
    g_dbus_connection_call_with_unix_fd_list(
        connection_.get(), method.destination.c_str(), method.path, method.interface, method.name, parameters,
        G_VARIANT_TYPE(method.replyType), flags, INT_MAX, nullptr, scope.cancellable(), &onCallDone, call);
}

void BusConnection::tell(const BusMethod& method, GVariant* parameters) {
    g_dbus_connection_call(connection_.get(), method.destination.c_str(), method.path, method.interface, method.name,
                           parameters, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
}

base::Subscription BusConnection::onSignal(const std::string& sender, const char* interface, const char* member,
                                           const char* type, SignalHandler handler) {
    auto* hook = new SignalHook{std::move(handler), type};
    const auto release = +[](gpointer data) { delete static_cast<SignalHook*>(data); };
    const auto id =
        g_dbus_connection_signal_subscribe(connection_.get(), sender.c_str(), interface, member, nullptr, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, &onSignalReceived, hook, release);
    return base::Subscription(
        [connection = connection_, id] { g_dbus_connection_signal_unsubscribe(connection.get(), id); });
}

base::Subscription BusConnection::watchName(const std::string& name, NameHandler handler) {
    const auto appeared = +[](GDBusConnection*, const gchar*, const gchar* owner, gpointer data) {
        (*static_cast<NameHandler*>(data))(owner);
    };
    const auto vanished =
        +[](GDBusConnection*, const gchar*, gpointer data) { (*static_cast<NameHandler*>(data))(""); };
    const auto release = +[](gpointer data) { delete static_cast<NameHandler*>(data); };
    const auto id = g_bus_watch_name_on_connection(connection_.get(), name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                   appeared, vanished, new NameHandler(std::move(handler)), release);
    return base::Subscription([id] { g_bus_unwatch_name(id); });
}

}  // namespace tessivox::gio
