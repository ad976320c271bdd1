// Counts allocations by standing in for the C library's functions, which its documentation allows ("Replacing malloc").
// Left out under sanitizers, which stand there themselves.
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "Measure.h"

namespace tessivox::bench {
namespace {

thread_local std::uint64_t count = 0;

}  // namespace

std::uint64_t allocations() { return count; }

}  // namespace tessivox::bench

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    ++tessivox::bench::count;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++tessivox::bench::count;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    ++tessivox::bench::count;
    return __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++tessivox::bench::count;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = aligned_alloc(alignment, size);
    return *block ? 0 : ENOMEM;
}

}  // extern "C"

#endif
