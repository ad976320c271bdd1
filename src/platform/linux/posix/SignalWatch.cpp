#include "platform/linux/posix/SignalWatch.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {

SignalWatch::SignalWatch(EventLoop& loop, std::initializer_list<int> signals, Handler handler) {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set{};
    ::sigemptyset(&set);
    for (const int signal : signals) ::sigaddset(&set, signal);
    fd_ = Descriptor(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd_) throw std::system_error(errno, std::generic_category(), "signalfd");
    readable_ = loop.watch(fd_.get(), EPOLLIN, [fd = fd_.get(), handler = std::move(handler)](std::uint32_t) {
        // One signal a turn: the handler may end the watch, and with it the descriptor.
        signalfd_siginfo info{};
        if (retry([&] { return ::read(fd, &info, sizeof info); }) == sizeof info) {
            handler(static_cast<int>(info.ssi_signo));
        }
    });
    ::pthread_sigmask(SIG_BLOCK, &set, &before_);
}

SignalWatch::~SignalWatch() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace tessivox::posix
