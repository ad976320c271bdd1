#pragma once

#include <csignal>

namespace tessivox::posix {

/// Gives the calling thread a stack of its own for signal handlers, so that even a stack overflow is reported. Its end,
/// on the same thread, brings back the one before. Without memory for it the thread keeps the one it has.
class AlternateStack {
public:
    AlternateStack() noexcept;
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;
    ~AlternateStack();

private:
    void* memory_ = nullptr;
    stack_t before_{};
};

}  // namespace tessivox::posix
