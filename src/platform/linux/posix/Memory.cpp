#include "platform/linux/posix/Memory.h"

#include <malloc.h>

namespace tessivox::posix {

void keepBigBlocksApart() {
    constexpr int big = 128 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, big);
}

}  // namespace tessivox::posix
