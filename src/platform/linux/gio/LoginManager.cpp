#include "platform/linux/gio/LoginManager.h"

#include <unistd.h>

#include "base/Log.h"

namespace tessivox::gio {
namespace {

constexpr const char* kName = "org.freedesktop.login1";
constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

bool flagIn(GVariant* parameters) {
    gboolean flag = FALSE;
    g_variant_get(parameters, "(b)", &flag);
    return flag != FALSE;
}

}  // namespace

LoginManager::Inhibitor::~Inhibitor() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void LoginManager::begin() {
    system_ = bus_.system().state.observe([this](BusConnection::State state) { followSystem(state); });
    session_ = bus_.session().state.observe([this](BusConnection::State state) { followSession(state); });
    bus_.system().connect();
    bus_.session().connect();
}

void LoginManager::followSystem(BusConnection::State state) {
    isThere_ = false;
    if (state != BusConnection::State::open) return;
    auto& bus = bus_.system();
    signals_[0] = bus.onSignal(kName, kInterface, "PrepareForSleep", "(b)",
                               [this](const std::string&, GVariant* parameters) { onSleep(flagIn(parameters)); });
    signals_[1] = bus.onSignal(kName, kInterface, "PrepareForShutdown", "(b)",
                               [this](const std::string&, GVariant* parameters) { onShutdown(flagIn(parameters)); });
    owner_ = bus.watchName(kName, [this](const std::string& owner) { followOwner(owner); });
}

/// It goes away under a program only when the session is over.
void LoginManager::followSession(BusConnection::State state) {
    if (state != BusConnection::State::lost || hasEnded_) return;
    hasEnded_ = true;
    listeners_.sessionEnd();
}

void LoginManager::followOwner(const std::string& owner) {
    isThere_ = !owner.empty();
    askAll();
}

/// While the computer goes to sleep no delay is granted, so those that were refused are asked for afterwards.
void LoginManager::onSleep(bool isGoingToSleep) {
    listeners_.sleep(isGoingToSleep);
    if (!isGoingToSleep) askAll();
}

/// A shutdown may be called off.
void LoginManager::onShutdown(bool isGoingDown) {
    if (std::exchange(hasEnded_, isGoingDown) != isGoingDown && isGoingDown) listeners_.sessionEnd();
    if (!isGoingDown) askAll();
}

void LoginManager::delay(Key key, const std::string& reason) {
    auto& held = delays_[key];
    held = HeldDelay{reason, ++lastNumber_, false, {}};
    bus_.system().connect();
    ask(key, held);
}

void LoginManager::askAll() {
    for (auto& [key, held] : delays_) ask(key, held);
}

void LoginManager::ask(Key key, HeldDelay& held) {
    if (!isThere_ || held.isAsking || held.inhibitor.isHeld()) return;
    held.isAsking = true;
    const auto number = held.number;
    bus_.system().call({kName, kPath, kInterface, "Inhibit", "(h)"},
                       g_variant_new("(ssss)", "sleep:shutdown", "Tessivox", held.reason.c_str(), "delay"), scope_,
                       [this, key, number](const BusReply& reply) { take(key, number, reply); });
}

/// A descriptor that nobody wants any more is closed with the reply that carries it.
void LoginManager::take(Key key, unsigned number, const BusReply& reply) {
    const auto found = delays_.find(key);
    if (found == delays_.end() || found->second.number != number) return;
    found->second.isAsking = false;
    if (!reply.value || !reply.descriptors) return base::log("[Session] logind grants no delay: " + reply.message);
    gint32 place = 0;
    g_variant_get(reply.value.get(), "(h)", &place);
    const bool isThere = place >= 0 && place < g_unix_fd_list_get_length(reply.descriptors.get());
    if (isThere) found->second.inhibitor = Inhibitor(g_unix_fd_list_get(reply.descriptors.get(), place, nullptr));
}

}  // namespace tessivox::gio
