#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tessivox::base {

/// Ends a handler's registration when destroyed. Keep it among the last members of the object the handler touches.
class [[nodiscard]] Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    ~Subscription() { reset(); }

    void reset() {
        if (const auto cancel = std::exchange(cancel_, nullptr)) cancel();
    }

private:
    std::function<void()> cancel_;
};

/// An event. Handlers run in the order of their registration; they may end each other's registration, register new
/// handlers (called from the next event on) and destroy the signal. One thread.
template <typename... Args>
class Signal {
public:
    using Handler = std::function<void(Args...)>;

    Subscription observe(Handler handler) {
        const auto entry = std::make_shared<Handler>(std::move(handler));
        entries_->push_back(entry);
        return Subscription([entries = std::weak_ptr(entries_), entry] {
            *entry = nullptr;
            if (const auto list = entries.lock()) std::erase(*list, entry);
        });
    }

    void emit(Args... args) const {
        const auto round = *entries_;
        for (const auto& entry : round) {
            // A copy runs, so that a handler may end its own registration.
            if (const Handler handler = *entry) handler(args...);
        }
    }

private:
    using Entries = std::vector<std::shared_ptr<Handler>>;
    std::shared_ptr<Entries> entries_ = std::make_shared<Entries>();
};

}  // namespace tessivox::base
