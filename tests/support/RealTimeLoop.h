#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include "base/Scheduler.h"
#include "base/TaskScope.h"

namespace tessivox::testing {

/// The main loop in real time, for tests of adapters whose events come from outside. The test's thread is the main
/// thread; it runs the loop while it waits for something.
class RealTimeLoop final : public base::Scheduler {
public:
    base::HostTime now() const override;
    base::WallTime wallNow() const override;
    void post(std::function<void()> work) override;
    base::Timer after(base::Duration delay, std::function<void()> handler) override;
    base::Timer every(base::Duration interval, std::function<void()> handler) override;
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override;

    /// Runs the loop until the condition holds, which is looked at after each event and every 5 ms; false if it does
    /// not within the limit.
    bool runUntil(const std::function<bool()>& condition, base::Duration limit = std::chrono::seconds(10));
    /// Runs the loop for a span, for what needs time itself: a stretch of audio.
    void runFor(base::Duration span) {
        runUntil([] { return false; }, span);
    }

    /// Runs a task to its end; throws what the task throws, and std::runtime_error after the limit.
    template <typename T>
    T finish(base::Task<T> task, base::Duration limit = std::chrono::seconds(10)) {
        std::optional<T> result;
        std::exception_ptr error;
        base::TaskScope scope(*this);
        scope.start(capture(std::move(task), result, error));
        const bool isDone = runUntil([&] { return result.has_value() || error; }, limit);
        runUntil([&] { return scope.isIdle(); }, std::chrono::milliseconds(100));
        if (error) std::rethrow_exception(error);
        if (!isDone) throw std::runtime_error("the task did not finish in time");
        return std::move(*result);
    }

private:
    struct Source;
    std::mutex mutex_;
    std::condition_variable woken_;
    std::deque<std::function<void()>> work_;
    base::TimerQueue timers_;

    bool runOne();
    void waitForWork(base::HostTime until);

    template <typename T>
    static base::Task<void> capture(base::Task<T> task, std::optional<T>& result, std::exception_ptr& error) {
        try {
            result.emplace(co_await task);
        } catch (...) {
            error = std::current_exception();
        }
    }
};

}  // namespace tessivox::testing
