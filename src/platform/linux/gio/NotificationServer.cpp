#include "platform/linux/gio/NotificationServer.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>

#include "base/Log.h"

namespace tessivox::gio {
namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr guchar kCritical = 2;

std::set<std::string> textsIn(const BusReply& reply) {
    std::set<std::string> texts;
    if (!reply.value) return texts;
    const Variant list(g_variant_get_child_value(reply.value.get(), 0));
    GVariantIter iterator;
    g_variant_iter_init(&iterator, list.get());
    for (const char* text = nullptr; g_variant_iter_next(&iterator, "&s", &text);) texts.insert(text);
    return texts;
}

std::string escaped(const std::string& text) {
    char* const safe = g_markup_escape_text(text.c_str(), static_cast<gssize>(text.size()));
    const std::string result = safe;
    g_free(safe);
    return result;
}

/// The keys are the actions' places.
GVariant* actionsOf(const NotificationText& text) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
    for (std::size_t place = 0; place < text.actions.size(); ++place) {
        g_variant_builder_add(&builder, "s", std::to_string(place).c_str());
        g_variant_builder_add(&builder, "s", text.actions[place].c_str());
    }
    return g_variant_builder_end(&builder);
}

/// Critical ones stay on the screen, resident ones when an action was chosen, and transient ones are not kept in a list
/// afterwards. A sound would be part of the recording.
GVariant* hints() {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&builder, "{sv}", "urgency", g_variant_new_byte(kCritical));
    for (const auto* name : {"resident", "transient", "suppress-sound"})
        g_variant_builder_add(&builder, "{sv}", name, g_variant_new_boolean(TRUE));
    g_variant_builder_add(&builder, "{sv}", "desktop-entry", g_variant_new_string("com.tessivox.Tessivox"));
    return g_variant_builder_end(&builder);
}

}  // namespace

NotificationServer::~NotificationServer() {
    stopGrace();
    for (const auto& [key, notification] : notifications_) remove(notification.id);
}

void NotificationServer::begin() {
    state_ = bus_.session().state.observe([this](BusConnection::State state) { follow(state); });
    bus_.session().connect();
}

void NotificationServer::follow(BusConnection::State state) {
    if (state != BusConnection::State::open) {
        canBeStarted_ = false;
        return followOwner("");
    }
    auto& bus = bus_.session();
    signals_[0] = bus.onSignal(kName, kName, "ActionInvoked", "(us)",
                               [this](const std::string& from, GVariant* values) { onAction(from, values); });
    signals_[1] = bus.onSignal(kName, kName, "NotificationClosed", "(uu)",
                               [this](const std::string& from, GVariant* values) { onClosed(from, values); });
    name_ = bus.watchName(kName, [this](const std::string& owner) { followOwner(owner); });
    askWhetherStartable();
}

void NotificationServer::askWhetherStartable() {
    bus_.session().call({kBus, kBusPath, kBus, "ListActivatableNames", "(as)"}, nullptr, scope_,
                        [this](const BusReply& reply) {
                            canBeStarted_ = textsIn(reply).contains(kName);
                            if (canBeStarted_ && owner_.empty()) startGrace();
                        });
}

void NotificationServer::startGrace() {
    stopGrace();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(grace_).count();
    graceTimer_ = g_timeout_source_new(static_cast<guint>(milliseconds));
    const auto onTime = +[](gpointer self) -> gboolean {
        static_cast<NotificationServer*>(self)->startServer();
        return G_SOURCE_REMOVE;
    };
    g_source_set_callback(graceTimer_, onTime, this, nullptr);
    g_source_attach(graceTimer_, g_main_context_get_thread_default());
}

void NotificationServer::stopGrace() {
    if (!graceTimer_) return;
    g_source_destroy(graceTimer_);
    g_source_unref(std::exchange(graceTimer_, nullptr));
}

/// Its name appears if that succeeds; the rest follows from there.
void NotificationServer::startServer() {
    bus_.session().call({kBus, kBusPath, kBus, "StartServiceByName", "(u)"}, g_variant_new("(su)", kName, 0U), scope_,
                        [](const BusReply& reply) {
                            if (!reply.value) base::log("[Notifications] no server: " + reply.message);
                        });
}

/// A server that the bus starts may end while it has nothing to do, and is then as good as one that runs.
void NotificationServer::followOwner(const std::string& owner) {
    owner_ = owner;
    ownerScope_.reset();
    if (owner.empty()) setAvailable(isAvailable_ && canBeStarted_);
    for (auto& [key, notification] : notifications_) lose(key, notification);
    if (owner.empty()) return;
    stopGrace();
    ownerScope_.emplace();
    bus_.session().call({owner, kPath, kName, "GetCapabilities", "(as)"}, nullptr, *ownerScope_,
                        [this](const BusReply& reply) { learn(reply); });
}

void NotificationServer::learn(const BusReply& reply) {
    const auto capabilities = textsIn(reply);
    hasMarkup_ = capabilities.contains("body-markup");
    setAvailable(capabilities.contains("actions"));
    for (auto& [key, notification] : notifications_) {
        const bool isNew = notification.id == 0 && !notification.isSending && !notification.isClosedByServer;
        if (!isAvailable_) {
            remove(notification.id);
            lose(key, notification);
        } else if (isNew && !std::exchange(notification.isSecondTry, true)) {
            send(key, notification);
        }
    }
}

void NotificationServer::setAvailable(bool isAvailable) {
    if (std::exchange(isAvailable_, isAvailable) != isAvailable) listeners_.availability(isAvailable);
}

void NotificationServer::lose(Key key, Notification& notification) {
    const bool wasShown = notification.id != 0;
    notification.id = 0;
    if (wasShown && !notification.isClosedByServer) listeners_.shown(key, false);
}

void NotificationServer::show(Key key, NotificationText text) {
    auto& notification = notifications_[key];
    notification.text = std::move(text);
    if (isAvailable_)
        send(key, notification);
    else
        listeners_.shown(key, false);
}

void NotificationServer::setBody(Key key, const std::string& body) {
    const auto found = notifications_.find(key);
    if (found == notifications_.end()) return;
    auto& notification = found->second;
    notification.text.body = body;
    // What the user has closed would come up again.
    if (notification.id != 0 && !notification.isSending && !notification.isClosedByServer) send(key, notification);
}

void NotificationServer::send(Key key, Notification& notification) {
    const auto& text = notification.text;
    notification.isSending = true;
    notification.sentBody = text.body;
    const auto body = hasMarkup_ ? escaped(text.body) : text.body;
    auto* const parameters =
        g_variant_new("(susss@as@a{sv}i)", "Tessivox", notification.id, text.icon.c_str(), text.title.c_str(),
                      body.c_str(), actionsOf(text), hints(), static_cast<gint32>(text.limit.count()));
    bus_.session().call({kName, kPath, kName, "Notify", "(u)", true}, parameters, scope_,
                        [this, key](const BusReply& reply) { take(key, reply); });
}

void NotificationServer::take(Key key, const BusReply& reply) {
    std::uint32_t id = 0;
    if (reply.value) g_variant_get(reply.value.get(), "(u)", &id);
    const auto found = notifications_.find(key);
    if (found == notifications_.end() || found->second.isClosedByServer) return remove(id);
    auto& notification = found->second;
    notification.isSending = false;
    const bool isNew = notification.id == 0;
    if (!isAvailable_) remove(std::exchange(id, 0));  // its server has turned out to offer no actions
    notification.id = id;
    if (id == 0)
        listeners_.shown(key, false);
    else if (isNew)
        listeners_.shown(key, true);
    if (id != 0 && notification.sentBody != notification.text.body) send(key, notification);
}

void NotificationServer::close(Key key) {
    const auto found = notifications_.find(key);
    if (found == notifications_.end()) return;
    if (!found->second.isSending) remove(found->second.id);
    notifications_.erase(found);
}

void NotificationServer::remove(std::uint32_t id) {
    if (id == 0 || bus_.session().state.get() != BusConnection::State::open) return;
    bus_.session().tell({kName, kPath, kName, "CloseNotification", "()"}, g_variant_new("(u)", id));
}

std::pair<const NotificationServer::Key, NotificationServer::Notification>* NotificationServer::withID(
    std::uint32_t id) {
    const auto found = std::ranges::find_if(notifications_, [id](const auto& row) { return row.second.id == id; });
    return id == 0 || found == notifications_.end() ? nullptr : &*found;
}

void NotificationServer::onAction(const std::string& sender, GVariant* parameters) {
    std::uint32_t id = 0;
    const char* key = nullptr;
    g_variant_get(parameters, "(u&s)", &id, &key);
    const auto* row = sender == owner_ ? withID(id) : nullptr;
    if (!row) return;
    const std::string_view text = key;
    std::size_t action = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), action);
    const bool isOurs = error == std::errc() && end == text.data() + text.size();
    if (isOurs && action < row->second.text.actions.size()) listeners_.answered(row->first, action);
}

void NotificationServer::onClosed(const std::string& sender, GVariant* parameters) {
    std::uint32_t id = 0;
    std::uint32_t reason = 0;
    g_variant_get(parameters, "(uu)", &id, &reason);
    if (auto* row = sender == owner_ ? withID(id) : nullptr) {
        row->second.isClosedByServer = true;
        row->second.id = 0;
    }
}

}  // namespace tessivox::gio
