#include "platform/linux/posix/Terminal.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>

#include <csignal>
#include <utility>

#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {

Terminal::Terminal(EventLoop& loop, int input, int output) : loop_(loop), input_(input), output_(output) {}

Terminal::~Terminal() { giveBack(); }

int Terminal::columns() const {
    constexpr int kUsualWidth = 80;
    winsize size{};
    return ::ioctl(output_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

void Terminal::readKeys(KeyHandler handler) {
    handler_ = std::move(handler);
    take();
}

void Terminal::suspend() {
    giveBack();
    ::kill(::getpid(), SIGSTOP);
    take();
}

void Terminal::resume() { take(); }

bool Terminal::isForeground() const {
    const pid_t group = ::tcgetpgrp(input_);
    return group == -1 || group == ::getpgrp();  // -1: not the terminal that controls this process
}

void Terminal::take() {
    // A process in the background would be stopped for touching the terminal.
    if (isTaken_ || !handler_ || !hasKeys() || !isForeground()) return;
    if (::tcgetattr(input_, &found_) < 0) return;
    termios mode = found_;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    if (::tcsetattr(input_, TCSANOW, &mode) < 0) return;
    isTaken_ = true;
    readable_ = loop_.watch(input_, EPOLLIN, [this](std::uint32_t) { deliver(); });
}

void Terminal::giveBack() {
    readable_.reset();
    if (std::exchange(isTaken_, false) && isForeground()) ::tcsetattr(input_, TCSANOW, &found_);
}

void Terminal::deliver() {
    char key = 0;
    if (isForeground() && retry([&] { return ::read(input_, &key, 1); }) == 1) {
        const auto handler = handler_;  // it may end this terminal
        handler(key);
    } else {
        giveBack();  // hung up, or in the background
    }
}

}  // namespace tessivox::posix
