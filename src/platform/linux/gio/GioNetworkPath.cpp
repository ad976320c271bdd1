#include "platform/linux/gio/GioNetworkPath.h"

#include <gio/gio.h>
#include <pthread.h>

#include <utility>

namespace tessivox::gio {
namespace {

/// GLib has one monitor a process, for life, and its news come to the context that it was made under.
GMainContext* monitorContext() {
    static GMainContext* const context = g_main_context_new();
    return context;
}

}  // namespace

GioNetworkPath::GioNetworkPath(base::Scheduler& scheduler)
    : source_(scheduler.source([this] { take(); })), thread_([this] { serve(); }) {}

GioNetworkPath::~GioNetworkPath() {
    ending_ = true;
    g_main_context_wakeup(monitorContext());
    thread_.join();
}

void GioNetworkPath::serve() {
    ::pthread_setname_np(::pthread_self(), "network-path");
    GMainContext* const context = monitorContext();
    g_main_context_push_thread_default(context);
    GNetworkMonitor* const monitor = g_network_monitor_get_default();
    const auto onChanged = +[](GNetworkMonitor*, gboolean isAvailable, gpointer self) {
        static_cast<GioNetworkPath*>(self)->tell(isAvailable != FALSE);
    };
    const auto handler = g_signal_connect(monitor, "network-changed", G_CALLBACK(onChanged), this);
    tell(g_network_monitor_get_network_available(monitor) != FALSE);
    while (!ending_) g_main_context_iteration(context, TRUE);
    g_signal_handler_disconnect(monitor, handler);
    g_main_context_pop_thread_default(context);
}

void GioNetworkPath::tell(bool isAvailable) {
    latest_ = isAvailable;
    source_->signal();
}

/// The monitor repeats itself; only what differs counts.
void GioNetworkPath::take() {
    const bool latest = latest_;
    if (std::exchange(isAvailable_, latest) != latest) changed_.emit(latest);
}

}  // namespace tessivox::gio
