#pragma once

#include <concepts>
#include <coroutine>
#include <exception>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace tessivox::base {

/// One started chain of tasks, as its scope keeps it.
struct TaskRoot {
    /// True while code of the chain is on the stack. Its frames may be destroyed only while it is false.
    bool running = false;
};

/// How an awaiter wakes the coroutine that waits for it. Main thread.
class Resumption {
public:
    Resumption() = default;
    template <typename Promise>
    explicit Resumption(std::coroutine_handle<Promise> waiting) : handle_(waiting), root_(waiting.promise().root) {
        if (root_) root_->running = false;
    }

    void operator()() const {
        if (root_) root_->running = true;
        handle_.resume();
    }

private:
    std::coroutine_handle<> handle_;
    TaskRoot* root_ = nullptr;
};

namespace detail {

struct TaskPromiseBase {
    TaskRoot* root = nullptr;
    std::coroutine_handle<> continuation = std::noop_coroutine();

    struct FinalAwaiter {
        bool await_ready() const noexcept { return false; }
        template <typename Promise>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> finished) const noexcept {
            return finished.promise().continuation;
        }
        void await_resume() const noexcept {}
    };

    std::suspend_always initial_suspend() const noexcept { return {}; }
    FinalAwaiter final_suspend() const noexcept { return {}; }
};

template <typename T>
struct TaskPromise;

}  // namespace detail

/// A lazy asynchronous operation: it begins when awaited (or handed to a TaskScope), runs on the main thread, and is
/// owned by whoever awaits it. Destroying it cancels it: each awaiter's destructor takes back its timer or request.
///
/// Name every argument before a `co_await`: g++ 12 destroys aggregate temporaries and lambdas inside one twice.
template <typename T>
class [[nodiscard]] Task {
public:
    using promise_type = detail::TaskPromise<T>;
    using Handle = std::coroutine_handle<promise_type>;

    Task() = default;
    explicit Task(Handle handle) : handle_(handle) {}
    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        if (this != &other) {
            destroy();
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }
    ~Task() { destroy(); }

    class Awaiter {
    public:
        explicit Awaiter(Handle handle) : handle_(handle) {}
        bool await_ready() const noexcept { return false; }
        template <typename Promise>
        Handle await_suspend(std::coroutine_handle<Promise> waiting) const noexcept {
            handle_.promise().continuation = waiting;
            handle_.promise().root = waiting.promise().root;
            return handle_;
        }
        T await_resume() const { return handle_.promise().take(); }

    private:
        Handle handle_;
    };

    Awaiter operator co_await() const noexcept { return Awaiter(handle_); }

private:
    Handle handle_;

    void destroy() noexcept {
        if (handle_) std::exchange(handle_, nullptr).destroy();
    }
};

namespace detail {

template <typename T>
struct TaskPromise : TaskPromiseBase {
    std::variant<std::monostate, T, std::exception_ptr> outcome;

    Task<T> get_return_object() { return Task<T>(std::coroutine_handle<TaskPromise>::from_promise(*this)); }
    template <typename Value>
    requires std::convertible_to<Value&&, T>
    void return_value(Value&& value) { outcome.template emplace<1>(std::forward<Value>(value)); }
    void unhandled_exception() noexcept { outcome.template emplace<2>(std::current_exception()); }
    T take() {
        if (outcome.index() == 2) std::rethrow_exception(std::get<2>(outcome));
        return std::move(std::get<1>(outcome));
    }
};

template <>
struct TaskPromise<void> : TaskPromiseBase {
    std::exception_ptr error;

    Task<void> get_return_object() { return Task<void>(std::coroutine_handle<TaskPromise>::from_promise(*this)); }
    void return_void() const noexcept {}
    void unhandled_exception() noexcept { error = std::current_exception(); }
    void take() const {
        if (error) std::rethrow_exception(error);
    }
};

}  // namespace detail
}  // namespace tessivox::base
