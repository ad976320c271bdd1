#pragma once

#include <csignal>
#include <functional>
#include <initializer_list>

#include "base/Signal.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::posix {

/// Brings signals of the operating system to the main loop, and ignores SIGPIPE for the rest of the process's life. The
/// signals are blocked in the calling thread and those that it makes later, so make it before any other thread;
/// several of a kind within one turn are told once. Its end restores the thread's mask. Main thread.
class SignalWatch {
public:
    using Handler = std::function<void(int signal)>;

    /// Throws std::system_error when the system has no descriptors left.
    SignalWatch(EventLoop& loop, std::initializer_list<int> signals, Handler handler);
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;
    ~SignalWatch();

private:
    sigset_t before_{};
    Descriptor fd_;
    base::Subscription readable_;
};

}  // namespace tessivox::posix
