#include "base/Timer.h"

#include <algorithm>

namespace tessivox::base {

Timer& Timer::operator=(Timer&& other) noexcept {
    if (this != &other) {
        reset();
        queue_ = std::exchange(other.queue_, nullptr);
        id_ = other.id_;
    }
    return *this;
}

void Timer::reset() noexcept {
    if (queue_) std::exchange(queue_, nullptr)->cancel(id_);
}

Timer::operator bool() const noexcept { return queue_ && queue_->entries_.contains(id_); }

Timer TimerQueue::add(HostTime due, Duration interval, std::function<void()> handler) {
    const auto id = ++lastID_;
    entries_.emplace(id, Entry{due, interval, std::move(handler)});
    schedule(id, due);
    return {*this, id};
}

std::optional<HostTime> TimerQueue::nextDue() const {
    if (order_.empty()) return std::nullopt;
    return order_.begin()->first.first;
}

bool TimerQueue::runOneDue(HostTime now) {
    if (order_.empty() || order_.begin()->first.first > now) return false;
    const auto id = order_.begin()->second;
    order_.erase(order_.begin());
    auto found = entries_.find(id);
    // The handler is moved out first: it may destroy its own timer, or replace it.
    auto handler = std::move(found->second.handler);
    if (found->second.interval <= Duration::zero()) {
        entries_.erase(found);
        handler();
        return true;
    }
    const auto interval = found->second.interval;
    const auto missed = (now - found->second.due) / interval;
    schedule(id, found->second.due + (missed + 1) * interval);
    handler();
    found = entries_.find(id);
    if (found != entries_.end()) found->second.handler = std::move(handler);
    return true;
}

void TimerQueue::cancel(std::uint64_t id) noexcept {
    const auto found = entries_.find(id);
    if (found == entries_.end()) return;
    const auto due = found->second.due;
    for (auto row = order_.lower_bound({due, 0}); row != order_.end() && row->first.first == due; ++row) {
        if (row->second != id) continue;
        order_.erase(row);
        break;
    }
    entries_.erase(found);
}

void TimerQueue::schedule(std::uint64_t id, HostTime due) {
    entries_.at(id).due = due;
    order_.emplace(Key{due, ++lastOrder_}, id);
}

}  // namespace tessivox::base
