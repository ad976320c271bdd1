#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/Signal.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::posix {

/// A program started to live a life of its own: in a session of its own, in the root folder, with no signal blocked or
/// ignored, and with no descriptor but those it is given. This object's end leaves it running. Main thread.
class DetachedProcess {
public:
    struct Program {
        std::filesystem::path file;  ///< absolute
        std::vector<std::string> arguments;
        std::vector<int> descriptors;  ///< become 3, 4, ...
        int log = -1;                  ///< becomes its standard error; negative for none
    };
    /// How it ended: the exit code, or absent if it was killed or nobody knows.
    using OnEnd = std::function<void(std::optional<int> exitCode)>;

    /// `onEnd` may destroy this object. Throws std::system_error if the program cannot be started.
    DetachedProcess(EventLoop& loop, const Program& program, OnEnd onEnd);
    DetachedProcess(const DetachedProcess&) = delete;
    DetachedProcess& operator=(const DetachedProcess&) = delete;

    pid_t pid() const noexcept { return pid_; }

private:
    pid_t pid_;
    Descriptor end_;  ///< readable when the process has ended
    base::Subscription ended_;
};

}  // namespace tessivox::posix
