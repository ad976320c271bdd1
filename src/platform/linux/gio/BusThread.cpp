#include "platform/linux/gio/BusThread.h"

#include <pthread.h>

#include "platform/linux/gio/BusConnection.h"

namespace tessivox::gio {
namespace {

using Work = std::function<void()>;

/// How long the end waits for a bus to take what was sent, in milliseconds.
constexpr guint kLongestGoodbye = 500;

gboolean setFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}

}  // namespace

BusThread::BusThread(base::Scheduler& scheduler, BusAddresses addresses)
    : scheduler_(scheduler),
      addresses_(std::move(addresses)),
      context_(g_main_context_new()),
      thread_([this] { serve(); }) {}

BusThread::~BusThread() {
    post([this] { isOver_ = true; });
    thread_.join();
    g_main_context_unref(context_);
}

void BusThread::post(Work work) {
    GSource* const source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    const auto run = +[](gpointer data) -> gboolean {
        (*static_cast<Work*>(data))();
        return G_SOURCE_REMOVE;
    };
    const auto release = +[](gpointer data) { delete static_cast<Work*>(data); };
    g_source_set_callback(source, run, new Work(std::move(work)), release);
    g_source_attach(source, context_);
    g_source_unref(source);
}

void BusThread::serve() {
    ::pthread_setname_np(::pthread_self(), "bus");
    g_main_context_push_thread_default(context_);
    session_ = std::make_unique<BusConnection>(addresses_.session);
    system_ = std::make_unique<BusConnection>(addresses_.system);
    while (!isOver_) g_main_context_iteration(context_, TRUE);
    sendRest(*session_);
    finishCalls();
    g_main_context_pop_thread_default(context_);
}

void BusThread::sendRest(BusConnection& connection) {
    if (connection.state.get() != BusConnection::State::open) return;
    bool isLate = false;
    bool isSent = false;
    GSource* const limit = g_timeout_source_new(kLongestGoodbye);
    g_source_set_callback(limit, &setFlag, &isLate, nullptr);
    g_source_attach(limit, context_);
    GCancellable* const cancellable = g_cancellable_new();
    const auto done = +[](GObject* source, GAsyncResult* result, gpointer flag) {
        g_dbus_connection_flush_finish(G_DBUS_CONNECTION(source), result, nullptr);
        setFlag(flag);
    };
    g_dbus_connection_flush(connection.get(), cancellable, done, &isSent);
    while (!isSent && !isLate) g_main_context_iteration(context_, TRUE);
    if (!isSent) g_cancellable_cancel(cancellable);
    while (!isSent) g_main_context_iteration(context_, TRUE);
    g_source_destroy(limit);
    g_source_unref(limit);
    g_object_unref(cancellable);
}

/// Calls that were taken back come home before their loop goes.
void BusThread::finishCalls() {
    const auto session = std::move(session_);
    const auto system = std::move(system_);
    session->end();
    system->end();
    while (session->pendingCalls() + system->pendingCalls() > 0) g_main_context_iteration(context_, TRUE);
    while (g_main_context_iteration(context_, FALSE)) continue;
}

}  // namespace tessivox::gio
