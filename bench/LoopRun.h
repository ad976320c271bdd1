#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "base/Task.h"
#include "base/TaskScope.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::bench {

/// Runs work on a thread of its own while the loop turns; throws what the work throws.
inline void runBeside(posix::EventLoop& loop, const std::function<void()>& work) {
    std::exception_ptr error;
    std::jthread thread([&] {
        try {
            work();
        } catch (...) {
            error = std::current_exception();
        }
        loop.quit();
    });
    loop.run();
    thread.join();
    if (error) std::rethrow_exception(error);
}

template <typename T>
base::Task<void> keepResult(base::Task<T> task, std::optional<T>& result, std::exception_ptr& error,
                            posix::EventLoop& loop) {
    try {
        result.emplace(co_await task);
    } catch (...) {
        error = std::current_exception();
    }
    loop.quit();
}

/// Turns the loop until the task is done; gives its result or throws its error.
template <typename T>
T finish(posix::EventLoop& loop, base::Task<T> task) {
    std::optional<T> result;
    std::exception_ptr error;
    base::TaskScope scope(loop);
    scope.start(keepResult(std::move(task), result, error, loop));
    loop.run();
    if (error) std::rethrow_exception(error);
    return std::move(*result);
}

}  // namespace tessivox::bench
