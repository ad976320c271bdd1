#pragma once

#include <cstdint>
#include <string>

namespace tessivox::posix {

/// Where the program itself, without its libraries, lies in memory, and which build of it this is.
struct ProgramImage {
    std::string path;
    std::string buildID;             ///< the linker's, in hexadecimal; empty if there is none
    std::uintptr_t loadAddress = 0;  ///< what to take off an address for addr2line(1)
    std::uintptr_t codeBegin = 0;    ///< of the executable segments
    std::uintptr_t codeEnd = 0;

    bool contains(std::uintptr_t address) const noexcept { return codeBegin <= address && address < codeEnd; }

    /// That of this process. Not in a signal handler.
    static ProgramImage current();
};

}  // namespace tessivox::posix
