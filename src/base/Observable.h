#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "base/Signal.h"

namespace tessivox::base {

/// A value that tells its observers when it changes. One thread.
template <typename T>
class Observable {
public:
    Observable() = default;
    explicit Observable(T value) : state_(std::make_shared<State>(std::move(value))) {}
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    const T& get() const { return state_->value; }

    /// Silent if equal. Set from within a handler, the new value is delivered after the current round.
    void set(T value) {
        if (state_->value == value) return;
        state_->value = std::move(value);
        deliver(state_);
    }

    /// Calls the handler at once, then on each change. Handlers may unsubscribe each other and destroy the observable.
    Subscription observe(std::function<void(const T&)> handler) {
        handler(state_->value);
        return state_->changed.observe(std::move(handler));
    }

private:
    struct State {
        State() = default;
        explicit State(T initial) : value(std::move(initial)) {}
        T value{};
        Signal<const T&> changed;
        bool delivering = false;
        bool again = false;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();

    static void deliver(std::shared_ptr<State> state) {
        if (std::exchange(state->delivering, true)) {
            state->again = true;
            return;
        }
        do {
            state->again = false;
            const T current = state->value;
            state->changed.emit(current);
        } while (state->again);
        state->delivering = false;
    }
};

}  // namespace tessivox::base
