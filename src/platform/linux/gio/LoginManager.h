#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "base/Signal.h"
#include "platform/linux/gio/BusConnection.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

/// logind on the system bus, and the life of the session bus. Bus thread.
class LoginManager {
public:
    struct Listeners {
        std::function<void(bool isGoingToSleep)> sleep;
        std::function<void()> sessionEnd;
    };
    /// Names a delay.
    using Key = const void*;

    LoginManager(BusThread& bus, Listeners listeners) : bus_(bus), listeners_(std::move(listeners)) {}

    void begin();
    /// Delays from when logind grants it until letGo().
    void delay(Key key, const std::string& reason);
    void letGo(Key key) { delays_.erase(key); }

private:
    /// The descriptor that logind waits for.
    class Inhibitor {
    public:
        Inhibitor() = default;
        explicit Inhibitor(int descriptor) : descriptor_(descriptor) {}
        Inhibitor(Inhibitor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
        Inhibitor& operator=(Inhibitor&& other) noexcept {
            std::swap(descriptor_, other.descriptor_);
            return *this;
        }
        ~Inhibitor();
        bool isHeld() const { return descriptor_ >= 0; }

    private:
        int descriptor_ = -1;
    };
    struct HeldDelay {
        std::string reason;
        unsigned number = 0;  ///< tells a delay from an earlier one with the same key
        bool isAsking = false;
        Inhibitor inhibitor;
    };

    BusThread& bus_;
    Listeners listeners_;
    std::map<Key, HeldDelay> delays_;
    unsigned lastNumber_ = 0;
    bool isThere_ = false;
    bool hasEnded_ = false;
    BusScope scope_;
    base::Subscription signals_[2];
    base::Subscription owner_;
    base::Subscription system_;
    base::Subscription session_;

    void followSystem(BusConnection::State state);
    void followSession(BusConnection::State state);
    void followOwner(const std::string& owner);
    void onSleep(bool isGoingToSleep);
    void onShutdown(bool isGoingDown);
    void askAll();
    void ask(Key key, HeldDelay& held);
    void take(Key key, unsigned number, const BusReply& reply);
};

}  // namespace tessivox::gio
