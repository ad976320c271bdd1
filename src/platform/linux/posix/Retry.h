#pragma once

#include <cerrno>

namespace tessivox::posix {

/// Repeats a system call for as long as a signal interrupts it.
template <typename Call>
auto retry(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

}  // namespace tessivox::posix
