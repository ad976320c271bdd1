#include "platform/linux/posix/Memory.h"

#include <malloc.h>

namespace tessivox::posix {

void keepBigBlocksApart() {
    // Above a second of sound, which comes and goes all the time and would else be mapped anew each time.
    constexpr int big = 1 << 20;
    ::mallopt(M_MMAP_THRESHOLD, big);
    // Setting one switches off the adapting of both.
    ::mallopt(M_TRIM_THRESHOLD, 4 * big);
}

}  // namespace tessivox::posix
