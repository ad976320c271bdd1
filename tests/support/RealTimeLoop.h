#pragma once

#include <functional>
#include <optional>
#include <stdexcept>

#include "base/TaskScope.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::testing {

/// The main loop in real time, for tests of what is answered from outside. The test's thread is the main thread; it
/// runs the loop while it waits for something.
class RealTimeLoop {
public:
    operator base::Scheduler&() { return loop_; }
    base::HostTime now() const { return loop_.now(); }

    /// Runs the loop until the condition holds, which is looked at every 5 ms; false if it does not within the limit.
    bool runUntil(const std::function<bool()>& condition, base::Duration limit = std::chrono::seconds(10));
    /// Runs the loop for a span, for what takes its time: a stretch of audio.
    void runFor(base::Duration span);

    /// Runs a task to its end; throws what the task throws, and std::runtime_error after the limit.
    template <typename T>
    T finish(base::Task<T> task, base::Duration limit = std::chrono::seconds(10)) {
        std::optional<T> result;
        std::exception_ptr error;
        base::TaskScope scope(loop_);
        scope.start(keep(std::move(task), result, error));
        if (!runUntil([&] { return scope.isIdle(); }, limit))
            throw std::runtime_error("the task did not finish in time");
        if (error) std::rethrow_exception(error);
        return std::move(*result);
    }

private:
    posix::EventLoop loop_;

    template <typename T>
    static base::Task<void> keep(base::Task<T> task, std::optional<T>& result, std::exception_ptr& error) {
        try {
            result.emplace(co_await task);
        } catch (...) {
            error = std::current_exception();
        }
    }
};

}  // namespace tessivox::testing
