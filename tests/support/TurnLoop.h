#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "base/TaskScope.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::testing {

/// Runs the main loop until the condition holds, which is looked at after each turn and every 5 ms; false if it does
/// not within the limit. Main thread.
inline bool runUntil(posix::EventLoop& loop, const std::function<bool()>& condition,
                     base::Duration limit = std::chrono::seconds(10)) {
    const auto end = loop.now() + limit;
    while (!condition()) {
        const auto now = loop.now();
        if (now >= end) return false;
        const auto next = std::min({end, now + std::chrono::milliseconds(5), loop.nextDeadline().value_or(end)});
        const auto span = std::chrono::ceil<std::chrono::milliseconds>(std::max(next - now, base::Duration::zero()));
        pollfd waiting{loop.fd(), POLLIN, 0};
        ::poll(&waiting, 1, static_cast<int>(span.count()));
        loop.dispatch();
    }
    return true;
}

/// Runs the loop for a span, for what needs time itself: a stretch of audio.
inline void runFor(posix::EventLoop& loop, base::Duration span) {
    const auto never = [] { return false; };
    runUntil(loop, never, span);
}

/// Keeps what a task gives or throws.
template <typename T>
base::Task<void> keepResult(base::Task<T> task, std::optional<T>& result, std::exception_ptr& error) {
    try {
        result.emplace(co_await task);
    } catch (...) {
        error = std::current_exception();
    }
}

/// Runs a task to its end; throws what the task throws, and std::runtime_error after the limit.
template <typename T>
T finish(posix::EventLoop& loop, base::Task<T> task, base::Duration limit = std::chrono::seconds(10)) {
    std::optional<T> result;
    std::exception_ptr error;
    base::TaskScope scope(loop);
    scope.start(keepResult(std::move(task), result, error));
    const bool isDone = runUntil(
        loop, [&] { return scope.isIdle(); }, limit);
    if (error) std::rethrow_exception(error);
    if (!isDone) throw std::runtime_error("the task did not finish in time");
    return std::move(*result);
}

}  // namespace tessivox::testing
