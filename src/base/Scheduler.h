#pragma once

#include <coroutine>
#include <functional>
#include <memory>

#include "base/Task.h"
#include "base/Timer.h"
#include "base/Units.h"

namespace tessivox::base {

/// Wakes a drain function on the thread it was made for. signal() neither allocates nor takes a lock held across work,
/// so it may be called from a capture callback; many signals before the drain runs become one. Destroying it (on the
/// drain's thread, or when its queue is idle) ends the calls.
class WakeSource {
public:
    virtual ~WakeSource() = default;
    virtual void signal() noexcept = 0;
};

/// The main loop as the logic sees it. Main thread only, except where a member says "any thread".
class Scheduler {
public:
    virtual ~Scheduler() = default;

    /// Time of the host clock, by which audio is placed too. Any thread.
    virtual HostTime now() const = 0;
    /// Time of the wall clock, for names and dates. Any thread.
    virtual WallTime wallNow() const = 0;

    /// Runs the function in a later turn of the loop, first in first out. After the loop has closed it is dropped, so
    /// it carries values only. Any thread.
    virtual void post(std::function<void()> work) = 0;

    /// Calls once, after the delay. Destroying or replacing the Timer cancels it.
    [[nodiscard]] virtual Timer after(Duration delay, std::function<void()> handler) = 0;
    /// Calls each interval; ticks that came late are not replayed.
    [[nodiscard]] virtual Timer every(Duration interval, std::function<void()> handler) = 0;

    /// A source whose drain runs in the main loop.
    [[nodiscard]] virtual std::unique_ptr<WakeSource> source(std::function<void()> drain) = 0;

    class SleepAwaiter {
    public:
        SleepAwaiter(Scheduler& scheduler, Duration delay) : scheduler_(scheduler), delay_(delay) {}
        bool await_ready() const noexcept { return false; }
        template <typename Promise>
        void await_suspend(std::coroutine_handle<Promise> waiting) {
            timer_ = scheduler_.after(delay_, Resumption(waiting));
        }
        void await_resume() const noexcept {}

    private:
        Scheduler& scheduler_;
        Duration delay_;
        Timer timer_;
    };

    /// `co_await scheduler.sleep(d)`: passes through the loop even when d is zero.
    [[nodiscard]] SleepAwaiter sleep(Duration delay) { return {*this, delay}; }
};

}  // namespace tessivox::base
