#pragma once

#include <coroutine>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "base/Scheduler.h"

namespace tessivox::base {

template <typename T>
class QueueRun;

/// A labelled serial queue with a thread of its own. Destroying it runs what was posted, then joins its thread.
class TaskQueue {
public:
    virtual ~TaskQueue() = default;

    /// Runs the work on the queue, first in first out. Any thread.
    virtual void post(std::function<void()> work) = 0;
    /// A source whose drain runs on the queue, in turn with posted work.
    [[nodiscard]] virtual std::unique_ptr<WakeSource> source(std::function<void()> drain) = 0;
    /// The main loop that results come home to.
    virtual Scheduler& home() = 0;

    /// `co_await queue.run(work)`: runs it on the queue and gives its result, or throws its error, on the main thread.
    /// If nobody waits any more the result is dropped; the work itself is not interrupted, so long work takes a
    /// stop_token and shares its state with the worker. Main thread.
    template <typename Work>
    [[nodiscard]] QueueRun<std::invoke_result_t<Work>> run(Work work) {
        return QueueRun<std::invoke_result_t<Work>>(*this, std::move(work));
    }
};

/// What a queue's worker is for; higher ones are served first by the system where it allows that.
enum class QueuePriority { userInteractive, userInitiated, utility };

/// Hands out the main loop and the queues of a process.
class Runtime {
public:
    virtual ~Runtime() = default;
    virtual Scheduler& scheduler() = 0;
    /// The label names the thread, for example "com.tessivox.stereo.write". Main thread.
    [[nodiscard]] virtual std::unique_ptr<TaskQueue> makeQueue(std::string label, QueuePriority priority) = 0;
};

template <typename T>
class QueueRun {
public:
    template <typename Work>
    QueueRun(TaskQueue& queue, Work work) : queue_(queue), shared_(std::make_shared<Shared>()) {
        shared_->work = std::move(work);
    }
    QueueRun(QueueRun&&) = delete;
    ~QueueRun() { shared_->wanted = false; }

    bool await_ready() const noexcept { return false; }
    template <typename Promise>
    void await_suspend(std::coroutine_handle<Promise> waiting) {
        shared_->resume = Resumption(waiting);
        queue_.post([shared = shared_, &home = queue_.home()] {
            shared->execute();
            home.post([shared] {
                if (shared->wanted) shared->resume();
            });
        });
    }
    T await_resume() {
        if (shared_->error) std::rethrow_exception(shared_->error);
        if constexpr (!std::is_void_v<T>) return std::move(*shared_->result);
    }

private:
    using Result = std::conditional_t<std::is_void_v<T>, char, T>;
    struct Shared {
        std::function<T()> work;
        std::optional<Result> result;
        std::exception_ptr error;
        Resumption resume;
        bool wanted = true;  // main thread

        void execute() noexcept {
            try {
                if constexpr (std::is_void_v<T>) {
                    work();
                } else {
                    result.emplace(work());
                }
            } catch (...) {
                error = std::current_exception();
            }
            work = nullptr;
        }
    };
    TaskQueue& queue_;
    std::shared_ptr<Shared> shared_;
};

}  // namespace tessivox::base
