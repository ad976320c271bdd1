#pragma once

#include <termios.h>
#include <unistd.h>

#include <functional>

#include "base/Signal.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::posix {

/// The terminal of a command line: keys come one by one without echo while readKeys() is on; the mode it was found in
/// is restored at the end and while suspended. Signal keys (Ctrl-C, Ctrl-Z) keep their meaning. Main thread.
class Terminal {
public:
    using KeyHandler = std::function<void(char key)>;

    explicit Terminal(EventLoop& loop, int input = STDIN_FILENO, int output = STDERR_FILENO);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    bool hasKeys() const { return ::isatty(input_) == 1; }
    bool hasScreen() const { return ::isatty(output_) == 1; }
    /// Whether this process is the one that the terminal listens to; true where that cannot be told.
    bool isForeground() const;
    /// The width of the screen; 80 where it is unknown.
    int columns() const;

    /// Begins to hand over keys; does nothing without a terminal or in the background.
    void readKeys(KeyHandler handler);
    /// The answer to SIGTSTP: gives the terminal back, stops the process, and takes the keys again when it goes on in
    /// the foreground.
    void suspend();
    /// The answer to SIGCONT: takes the keys again if the process is in the foreground by now.
    void resume();

private:
    EventLoop& loop_;
    int input_;
    int output_;
    KeyHandler handler_;
    termios found_{};
    base::Subscription readable_;
    bool isTaken_ = false;

    void take();
    void giveBack();
    void deliver();
};

}  // namespace tessivox::posix
