#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Scheduler.h"
#include "base/TaskQueue.h"
#include "base/TaskScope.h"

namespace tessivox::testing {

using base::Duration;
using base::HostTime;

/// The main loop and the queues in virtual time, together on the test's one thread. Posted work and queues take turns;
/// time moves only by advance().
class ManualRuntime final : public base::Runtime, public base::Scheduler {
public:
    ManualRuntime();
    ~ManualRuntime() override;

    // Runtime
    base::Scheduler& scheduler() override { return *this; }
    std::unique_ptr<base::TaskQueue> makeQueue(std::string label, base::QueuePriority priority) override;

    // Scheduler
    HostTime now() const override { return now_; }
    base::WallTime wallNow() const override { return wallStart_ + (now_ - start_); }
    void post(std::function<void()> work) override { mailbox_->work.push_back(std::move(work)); }
    base::Timer after(Duration delay, std::function<void()> handler) override;
    base::Timer every(Duration interval, std::function<void()> handler) override;
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override;

    /// Runs everything that is due now: posted work, queues, sources, timers at the present time.
    void settle();
    /// Moves time, running each timer at its own time and settling after each.
    void advance(Duration span);

    void setWallTime(base::WallTime time) { wallStart_ = time - (now_ - start_); }

    /// A serial mailbox: the main loop's or a queue's.
    struct Mailbox {
        std::deque<std::function<void()>> work;
        struct Source {
            std::function<void()> drain;
            bool signalled = false;
        };
        std::vector<Source*> sources;
        /// While true the queue's thread is busy elsewhere: nothing of it runs.
        bool isStalled = false;

        bool runOne();
        std::unique_ptr<base::WakeSource> makeSource(const std::shared_ptr<Mailbox>& self, std::function<void()> drain);
    };

    /// Stops the queue of that label from running, or lets it go on.
    void stall(const std::string& label, bool stalled);

private:
    class Queue;
    const HostTime start_{std::chrono::hours(1)};
    HostTime now_ = start_;
    base::WallTime wallStart_{std::chrono::hours(24 * 365 * 55)};
    base::TimerQueue timers_;
    std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>();
    std::vector<std::pair<std::string, std::weak_ptr<Mailbox>>> queues_;
};

/// Runs a task to its end, moving time up to `limit`; throws what the task throws. Gives up with std::runtime_error.
template <typename T>
T await(ManualRuntime& runtime, base::Task<T> task, Duration limit = std::chrono::hours(1)) {
    using Result = std::conditional_t<std::is_void_v<T>, char, T>;
    std::optional<Result> result;
    std::exception_ptr error;
    const auto wrap = [](base::Task<T> inner, std::optional<Result>& out,
                         std::exception_ptr& failure) -> base::Task<void> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await inner;
                out.emplace();
            } else {
                out.emplace(co_await inner);
            }
        } catch (...) {
            failure = std::current_exception();
        }
    };
    base::TaskScope scope(runtime);
    scope.start(wrap(std::move(task), result, error));
    runtime.settle();
    for (Duration waited{}; !result && !error && waited < limit; waited += std::chrono::milliseconds(10)) {
        runtime.advance(std::chrono::milliseconds(10));
    }
    if (error) std::rethrow_exception(error);
    if (!result) throw std::runtime_error("the task did not finish in time");
    if constexpr (!std::is_void_v<T>) return std::move(*result);
}

}  // namespace tessivox::testing
