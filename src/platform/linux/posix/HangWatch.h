#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <span>
#include <thread>

#include "base/Scheduler.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/StackSampler.h"

namespace tessivox::posix {

/// Tells, round by round, when a question has stayed unanswered for too long. Rounds are counted rather than time, so
/// that a machine that slept or a process that was stopped does not look like a hang.
class HangJudge {
public:
    static constexpr int kRounds = 3;

    /// True once in each stretch of rounds without an answer.
    bool isHang(bool isAnswered) noexcept {
        unanswered_ = isAnswered ? 0 : unanswered_ + 1;
        return unanswered_ == kRounds;
    }

private:
    int unanswered_ = 0;
};

/// Asks the main loop for an answer, a third of the timeout apart, from a thread of its own, and reports when none came
/// within the timeout; once until the loop answers again. A loop that waits is left in peace. Made and destroyed on the
/// main thread.
class HangWatch {
public:
    /// Gets the main thread's return addresses, innermost first. Watching thread.
    using Report = std::function<void(std::span<void* const> addresses)>;

    HangWatch(EventLoop& loop, base::Duration timeout, Report report);
    HangWatch(const HangWatch&) = delete;
    HangWatch& operator=(const HangWatch&) = delete;
    ~HangWatch();

private:
    const EventLoop& loop_;
    const base::Duration pace_;
    const Report report_;
    const pid_t mainThread_;
    StackSampler sampler_;
    std::atomic<bool> isAnswered_ = true;
    Descriptor end_;
    std::unique_ptr<base::WakeSource> question_;
    std::thread thread_;

    void watch();
    bool isOverAfterRound() const;
};

}  // namespace tessivox::posix
