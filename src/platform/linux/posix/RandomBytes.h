#pragma once

#include <cstddef>
#include <span>

namespace tessivox::posix {

/// Fills the span from the system's random source; see getrandom(2). Throws std::system_error where there is none.
void fillRandom(std::span<std::byte> bytes);

}  // namespace tessivox::posix
