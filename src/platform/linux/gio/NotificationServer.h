#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Signal.h"
#include "base/Units.h"
#include "platform/linux/gio/BusConnection.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

/// What a notification says. UTF-8.
struct NotificationText {
    std::string icon;
    std::string title;
    std::string body;
    std::vector<std::string> actions;    ///< their labels
    std::chrono::milliseconds limit{0};  ///< after which the server may remove it if nobody else does
};

/// Whoever shows notifications on the session bus. Bus thread.
class NotificationServer {
public:
    using Key = std::uint64_t;  ///< names a notification of ours
    struct Listeners {
        std::function<void(bool isAvailable)> availability;
        std::function<void(Key key, std::size_t action)> answered;
        /// The notification is on the screen, or is not: it could not be shown, or its server went away.
        std::function<void(Key key, bool isShown)> shown;
    };

    NotificationServer(BusThread& bus, Listeners listeners, base::Duration grace)
        : bus_(bus), listeners_(std::move(listeners)), grace_(grace) {}
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;
    ~NotificationServer();

    void begin();
    void show(Key key, NotificationText text);
    void setBody(Key key, const std::string& body);
    void close(Key key);

private:
    struct Notification {
        NotificationText text;
        std::uint32_t id = 0;  ///< 0 while it is not on the screen
        std::string sentBody;
        bool isSending = false;
        bool isClosedByServer = false;  ///< and so is not shown again
        bool isSecondTry = false;       ///< a server that goes away over it is not asked a third time
    };

    BusThread& bus_;
    Listeners listeners_;
    const base::Duration grace_;
    std::map<Key, Notification> notifications_;
    std::string owner_;
    bool canBeStarted_ = false;
    bool isAvailable_ = false;
    bool hasMarkup_ = false;
    GSource* graceTimer_ = nullptr;
    BusScope scope_;
    std::optional<BusScope> ownerScope_;
    base::Subscription signals_[2];
    base::Subscription name_;
    base::Subscription state_;

    void follow(BusConnection::State state);
    void followOwner(const std::string& owner);
    void askWhetherStartable();
    void startGrace();
    void stopGrace();
    void startServer();
    void learn(const BusReply& reply);
    void setAvailable(bool isAvailable);
    void lose(Key key, Notification& notification);
    void send(Key key, Notification& notification);
    void take(Key key, const BusReply& reply);
    void remove(std::uint32_t id);
    void onAction(const std::string& sender, GVariant* parameters);
    void onClosed(const std::string& sender, GVariant* parameters);
    std::pair<const Key, Notification>* withID(std::uint32_t id);
};

}  // namespace tessivox::gio
