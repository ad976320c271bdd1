#include "support/RealTimeLoop.h"

#include <algorithm>
#include <atomic>

namespace tessivox::testing {

base::HostTime RealTimeLoop::now() const {
    // libstdc++'s steady clock is CLOCK_MONOTONIC.
    return base::HostTime(std::chrono::steady_clock::now().time_since_epoch());
}

base::WallTime RealTimeLoop::wallNow() const { return std::chrono::system_clock::now(); }

void RealTimeLoop::post(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    woken_.notify_one();
}

base::Timer RealTimeLoop::after(base::Duration delay, std::function<void()> handler) {
    return timers_.add(now() + delay, base::Duration::zero(), std::move(handler));
}

base::Timer RealTimeLoop::every(base::Duration interval, std::function<void()> handler) {
    return timers_.add(now() + interval, interval, std::move(handler));
}

struct RealTimeLoop::Source final : base::WakeSource {
    struct State {
        std::function<void()> drain;
        std::atomic<bool> isSignalled = false;
    };
    RealTimeLoop& loop;
    std::shared_ptr<State> state = std::make_shared<State>();

    Source(RealTimeLoop& owner, std::function<void()> drain) : loop(owner) { state->drain = std::move(drain); }
    ~Source() override { state->drain = nullptr; }
    void signal() noexcept override {
        if (state->isSignalled.exchange(true)) return;
        loop.post([state = state] {
            state->isSignalled = false;
            if (const auto drain = state->drain) drain();
        });
    }
};

std::unique_ptr<base::WakeSource> RealTimeLoop::source(std::function<void()> drain) {
    return std::make_unique<Source>(*this, std::move(drain));
}

bool RealTimeLoop::runOne() {
    std::function<void()> next;
    {
        const std::lock_guard lock(mutex_);
        if (!work_.empty()) {
            next = std::move(work_.front());
            work_.pop_front();
        }
    }
    if (!next) return timers_.runOneDue(now());
    next();
    return true;
}

void RealTimeLoop::waitForWork(base::HostTime until) {
    const auto due = timers_.nextDue();
    if (due) until = std::min(until, *due);
    std::unique_lock lock(mutex_);
    woken_.wait_for(lock, until - now(), [this] { return !work_.empty(); });
}

bool RealTimeLoop::runUntil(const std::function<bool()>& condition, base::Duration limit) {
    const auto end = now() + limit;
    while (!condition()) {
        if (now() >= end) return false;
        if (!runOne()) waitForWork(std::min(end, now() + std::chrono::milliseconds(5)));
    }
    return true;
}

}  // namespace tessivox::testing
