#include "platform/linux/posix/InterruptedStack.h"

#include <execinfo.h>
#include <ucontext.h>

#include <algorithm>

namespace tessivox::posix {

void InterruptedStack::warmUp() {
    std::array<void*, 4> frames;
    ::backtrace(frames.data(), static_cast<int>(frames.size()));
}

const void* InterruptedStack::instruction(void* context) noexcept {
    const auto& machine = static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
    return reinterpret_cast<const void*>(machine.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return reinterpret_cast<const void*>(machine.pc);
#else
    static_cast<void>(machine);
    return nullptr;
#endif
}

void InterruptedStack::take(void* context) noexcept {
    end_ = static_cast<std::size_t>(std::max(::backtrace(frames_.data(), static_cast<int>(frames_.size())), 0));
    const auto found = std::find(frames_.data(), frames_.data() + end_, instruction(context));
    begin_ = found == frames_.data() + end_ ? 0 : static_cast<std::size_t>(found - frames_.data());
}

}  // namespace tessivox::posix
