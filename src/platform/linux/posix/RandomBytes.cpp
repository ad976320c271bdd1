#include "platform/linux/posix/RandomBytes.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {

void fillRandom(std::span<std::byte> bytes) {
    while (!bytes.empty()) {
        const auto got = retry([&] { return ::getrandom(bytes.data(), bytes.size(), 0); });
        if (got < 0) throw std::system_error(errno, std::generic_category(), "getrandom");
        bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
}

}  // namespace tessivox::posix
