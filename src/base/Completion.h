#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "base/Scheduler.h"

namespace tessivox::base {

/// One answer that arrives by callback, awaited by one task. Copies share the answer; the first answer counts, later
/// ones are dropped, as is one that nobody waits for any more. Main thread.
template <typename T>
class Completion {
public:
    void succeed(T value) const {
        if (!state_->isSettled()) {
            state_->value.emplace(std::move(value));
            state_->wake();
        }
    }
    void fail(std::exception_ptr error) const {
        if (!state_->isSettled()) {
            state_->error = std::move(error);
            state_->wake();
        }
    }

    class Awaiter;
    Awaiter operator co_await() const { return Awaiter(state_); }

private:
    struct State {
        std::optional<T> value;
        std::exception_ptr error;
        std::optional<Resumption> waiter;

        bool isSettled() const { return value.has_value() || error; }
        void wake() {
            if (auto waiting = std::exchange(waiter, std::nullopt)) (*waiting)();
        }
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();

public:
    class Awaiter {
    public:
        explicit Awaiter(std::shared_ptr<State> state) : state_(std::move(state)) {}
        Awaiter(Awaiter&&) = delete;
        ~Awaiter() { state_->waiter.reset(); }
        bool await_ready() const noexcept { return state_->isSettled(); }
        template <typename Promise>
        void await_suspend(std::coroutine_handle<Promise> waiting) {
            state_->waiter = Resumption(waiting);
        }
        T await_resume() const {
            if (state_->error) std::rethrow_exception(state_->error);
            return std::move(*state_->value);
        }

    private:
        std::shared_ptr<State> state_;
    };
};

}  // namespace tessivox::base
