#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "base/Timer.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::backend {

/// This program again, as a worker: a process group of its own that reads one line, answers in lines, and ends when its
/// standard input does, so that it never outlives the server. Main thread.
class WorkerProcess {
public:
    /// In bytes; a worker that writes more is ended.
    static constexpr std::size_t kMostOutput = 64 << 20;

    struct Handlers {
        std::function<void(const std::string& line)> line;
        /// It is gone, and all it said has been told. May destroy the object.
        std::function<void()> ended;
    };

    /// Throws std::system_error if the system refuses a process.
    WorkerProcess(posix::EventLoop& loop, const std::string& input, Handlers handlers);
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;
    /// Ends the whole group at once.
    ~WorkerProcess();

    /// Ends it at once; ended() follows.
    void kill() const;

private:
    posix::EventLoop& loop_;
    const Handlers handlers_;
    posix::Descriptor input_;
    posix::Descriptor output_;
    posix::Descriptor errors_;
    posix::Descriptor process_;
    pid_t pid_ = -1;
    std::string line_;
    std::string errorLine_;
    std::size_t outputBytes_ = 0;
    std::size_t errorBytes_ = 0;
    base::Timer ending_;
    base::Subscription outputReady_;
    base::Subscription errorsReady_;
    base::Subscription gone_;

    void spawn(int input, int output, int errors);
    void listen();
    void readOutput();
    void readErrors();
    void finish();
};

}  // namespace tessivox::backend
