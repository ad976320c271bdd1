#include "platform/linux/posix/AlternateStack.h"

#include <sys/mman.h>

#include <cstddef>

namespace tessivox::posix {
namespace {

constexpr std::size_t kGuard = 4096;
constexpr std::size_t kSize = 64 * 1024;  // address space; memory only once a handler runs

}  // namespace

AlternateStack::AlternateStack() noexcept {
    void* memory = ::mmap(nullptr, kGuard + kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    ::mprotect(memory, kGuard, PROT_NONE);
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(memory) + kGuard;
    stack.ss_size = kSize;
    if (::sigaltstack(&stack, &before_) == 0) {
        memory_ = memory;
    } else {
        ::munmap(memory, kGuard + kSize);
    }
}

AlternateStack::~AlternateStack() {
    if (!memory_) return;
    ::sigaltstack(&before_, nullptr);
    ::munmap(memory_, kGuard + kSize);
}

}  // namespace tessivox::posix
