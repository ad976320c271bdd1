#include "platform/linux/posix/EventLoop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <ctime>
#include <map>
#include <system_error>
#include <utility>

#include "platform/linux/posix/Mailbox.h"
#include "platform/linux/posix/QueueThread.h"

namespace tessivox::posix {
namespace {

constexpr std::uint64_t kInboxID = 0;

int checked(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void addToEpoll(int epoll, int fd, std::uint32_t events, std::uint64_t id) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    checked(::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
}

base::Duration readClock(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

timespec toTimespec(base::Duration duration) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    timespec result{};
    result.tv_sec = seconds.count();
    result.tv_nsec = (duration - seconds).count();
    return result;
}

}  // namespace

class EventLoop::Inbox final : public Mailbox {
public:
    int fd() const noexcept { return event_.get(); }
    void clear() const noexcept {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto got = ::read(event_.get(), &count, sizeof count);
    }

private:
    Descriptor event_{checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")};

    void notify() noexcept override {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto put = ::write(event_.get(), &one, sizeof one);
    }
};

struct EventLoop::Watches {
    std::map<std::uint64_t, std::shared_ptr<FdHandler>> handlers;
    std::uint64_t lastID = kInboxID;
};

EventLoop::EventLoop()
    : epoll_(checked(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      inbox_(std::make_shared<Inbox>()),
      watches_(std::make_shared<Watches>()) {
    addToEpoll(epoll_.get(), inbox_->fd(), EPOLLIN, kInboxID);
}

EventLoop::~EventLoop() { close(); }

std::unique_ptr<base::TaskQueue> EventLoop::makeQueue(std::string label, base::QueuePriority priority) {
    return std::make_unique<QueueThread>(*this, std::move(label), priority);
}

base::HostTime EventLoop::now() const { return base::HostTime(readClock(CLOCK_MONOTONIC)); }

base::WallTime EventLoop::wallNow() const { return base::WallTime(readClock(CLOCK_REALTIME)); }

void EventLoop::post(std::function<void()> work) { inbox_->post(std::move(work)); }

base::Timer EventLoop::after(base::Duration delay, std::function<void()> handler) {
    assert(std::this_thread::get_id() == thread_);
    return timers_.add(now() + delay, base::Duration::zero(), std::move(handler));
}

base::Timer EventLoop::every(base::Duration interval, std::function<void()> handler) {
    assert(std::this_thread::get_id() == thread_);
    return timers_.add(now() + interval, interval, std::move(handler));
}

std::unique_ptr<base::WakeSource> EventLoop::source(std::function<void()> drain) {
    return inbox_->makeSource(std::move(drain));
}

base::Subscription EventLoop::watch(int fd, std::uint32_t events, FdHandler handler) {
    assert(std::this_thread::get_id() == thread_);
    const auto id = ++watches_->lastID;
    addToEpoll(epoll_.get(), fd, events, id);
    watches_->handlers.emplace(id, std::make_shared<FdHandler>(std::move(handler)));
    return base::Subscription([weak = std::weak_ptr(watches_), epoll = epoll_.get(), fd, id] {
        const auto watches = weak.lock();
        if (watches && watches->handlers.erase(id) > 0) ::epoll_ctl(epoll, EPOLL_CTL_DEL, fd, nullptr);
    });
}

void EventLoop::run() {
    while (!quit_.exchange(false)) {
        wait();
        dispatch();
    }
}

void EventLoop::quit() {
    quit_ = true;
    inbox_->wake();
}

void EventLoop::close() { inbox_->close(); }

void EventLoop::dispatch() {
    dispatchDescriptors();
    inbox_->runTurn();
    // The time stands still within a turn, so that timers which renew themselves cannot keep it from ending.
    const auto time = now();
    while (timers_.runOneDue(time)) {
    }
}

void EventLoop::dispatchDescriptors() {
    std::array<epoll_event, 16> ready;
    const int count = ::epoll_wait(epoll_.get(), ready.data(), static_cast<int>(ready.size()), 0);
    for (int index = 0; index < count; ++index) {
        const auto& event = ready[static_cast<std::size_t>(index)];
        if (event.data.u64 == kInboxID) {
            inbox_->clear();
            continue;
        }
        const auto found = watches_->handlers.find(event.data.u64);
        if (found == watches_->handlers.end()) continue;  // an earlier handler of this turn ended it
        const auto handler = found->second;
        (*handler)(event.events);
    }
}

void EventLoop::wait() {
    pollfd waiting{epoll_.get(), POLLIN, 0};
    const auto deadline = nextDeadline();
    timespec span{};
    if (deadline) span = toTimespec(std::max(*deadline - now(), base::Duration::zero()));
    isWaiting_ = true;
    // An interrupted wait is a turn with nothing to do.
    ::ppoll(&waiting, 1, deadline ? &span : nullptr, nullptr);
    isWaiting_ = false;
}

}  // namespace tessivox::posix
