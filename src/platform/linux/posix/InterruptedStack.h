#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace tessivox::posix {

/// The way that led to where a signal interrupted a thread. Used in the handler of that signal; allocates and locks
/// nothing once warmUp() was called.
class InterruptedStack {
public:
    /// Loads the unwinder. Not in a signal handler.
    static void warmUp();
    /// Where the thread was; null on processors that are not known here. `context` is the handler's third argument.
    static const void* instruction(void* context) noexcept;

    /// Unwinds, and leaves out the handler's own frames if the unwinder came through to the interrupted instruction.
    void take(void* context) noexcept;
    /// Innermost first.
    std::span<void* const> addresses() const noexcept { return {frames_.data() + begin_, frames_.data() + end_}; }

private:
    std::array<void*, 64> frames_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

}  // namespace tessivox::posix
