#pragma once

namespace tessivox::posix {

/// Keeps every block of memory above a megabyte in a mapping of its own, which grows in place and goes back to the
/// system when it is freed. By default glibc stops doing so for sizes that were once freed (mallopt(3),
/// M_MMAP_THRESHOLD), and then an encoder's index, which grows for hours, leaves holes of its former sizes behind. Main
/// thread, before any other.
void keepBigBlocksApart();

}  // namespace tessivox::posix
