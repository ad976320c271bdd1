#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "base/Units.h"

namespace tessivox::base {

class TimerQueue;

/// Owns one pending call. Destroying, resetting or replacing it cancels the call. Main thread.
class Timer {
public:
    Timer() = default;
    Timer(TimerQueue& queue, std::uint64_t id) : queue_(&queue), id_(id) {}
    Timer(Timer&& other) noexcept : queue_(std::exchange(other.queue_, nullptr)), id_(other.id_) {}
    Timer& operator=(Timer&& other) noexcept;
    ~Timer() { reset(); }

    void reset() noexcept;
    /// Whether a call is still to come.
    explicit operator bool() const noexcept;

private:
    TimerQueue* queue_ = nullptr;
    std::uint64_t id_ = 0;
};

/// The timers of one loop, in order of their due times, then of their making. Knows no clock: the loop brings the time.
/// Outlives its timers.
class TimerQueue {
public:
    /// interval > 0 makes a repeating timer.
    [[nodiscard]] Timer add(HostTime due, Duration interval, std::function<void()> handler);

    std::optional<HostTime> nextDue() const;
    /// Runs the earliest timer if it is due at `now`; false when none is.
    bool runOneDue(HostTime now);

private:
    friend class Timer;
    struct Entry {
        HostTime due;
        Duration interval;
        std::function<void()> handler;
    };
    using Key = std::pair<HostTime, std::uint64_t>;

    std::map<std::uint64_t, Entry> entries_;
    std::map<Key, std::uint64_t> order_;
    std::uint64_t lastID_ = 0;
    std::uint64_t lastOrder_ = 0;

    void cancel(std::uint64_t id) noexcept;
    void schedule(std::uint64_t id, HostTime due);
};

}  // namespace tessivox::base
