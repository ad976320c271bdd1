#pragma once

#include <sys/types.h>

#include <csignal>
#include <span>

namespace tessivox::posix {

/// Looks at what another thread of this process is doing, by a signal (SIGURG) that the thread answers wherever it is.
/// One a process; made and destroyed on the same thread.
class StackSampler {
public:
    StackSampler();
    StackSampler(const StackSampler&) = delete;
    StackSampler& operator=(const StackSampler&) = delete;
    ~StackSampler();

    /// Return addresses of a thread other than the caller's, innermost first, valid until the next call. Empty if the
    /// thread does not answer within a second, as one that waits for a dead disk does not.
    std::span<void* const> sample(pid_t thread);

private:
    struct sigaction before_ {};
};

}  // namespace tessivox::posix
