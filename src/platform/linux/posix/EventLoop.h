#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/TaskQueue.h"
#include "base/Timer.h"
#include "base/Units.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::posix {

/// The main loop of a process on epoll, belonging to the thread that makes it. It sleeps until something happens. It
/// runs by itself, or inside another loop that calls dispatch() when fd() is readable or nextDeadline() has come.
class EventLoop final : public base::Runtime, public base::Scheduler {
public:
    using FdHandler = std::function<void(std::uint32_t events)>;

    /// Throws std::system_error when the system has no descriptors left.
    EventLoop();
    ~EventLoop() override;

    // Runtime
    base::Scheduler& scheduler() override { return *this; }
    std::unique_ptr<base::TaskQueue> makeQueue(std::string label, base::QueuePriority priority) override;

    // Scheduler
    base::HostTime now() const override;
    base::WallTime wallNow() const override;
    void post(std::function<void()> work) override;
    base::Timer after(base::Duration delay, std::function<void()> handler) override;
    base::Timer every(base::Duration interval, std::function<void()> handler) override;
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override;

    /// Calls the handler with what is ready of `events` (EPOLLIN, EPOLLOUT; also EPOLLERR, EPOLLHUP) in each turn in
    /// which it is. One watch a descriptor, which stays open meanwhile and must not be a regular file;
    /// std::system_error otherwise. Main thread.
    base::Subscription watch(int fd, std::uint32_t events, FdHandler handler);

    /// Takes turns until quit(). Main thread.
    void run();
    /// Ends run() after the present turn, or the next run() before its first. Any thread.
    void quit();
    /// Whether run() has nothing to do just now. Any thread.
    bool isWaiting() const noexcept { return isWaiting_; }
    /// Drops posted work that has not run, and all that comes. Main thread.
    void close();

    /// Readable when a turn is due for another reason than time.
    int fd() const noexcept { return epoll_.get(); }
    /// When the next timer is due, if there is one.
    std::optional<base::HostTime> nextDeadline() const { return timers_.nextDue(); }
    /// Takes one turn without waiting: ready descriptors, then sources and posted work, then due timers. Main thread.
    void dispatch();

private:
    class Inbox;
    struct Watches;

    Descriptor epoll_;
    std::shared_ptr<Inbox> inbox_;
    std::shared_ptr<Watches> watches_;
    base::TimerQueue timers_;
    std::atomic<bool> quit_ = false;
    std::atomic<bool> isWaiting_ = false;
    const std::thread::id thread_ = std::this_thread::get_id();

    void dispatchDescriptors();
    void wait();
};

}  // namespace tessivox::posix
