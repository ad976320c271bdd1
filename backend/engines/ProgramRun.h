#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tessivox::backend {

struct ProgramLimits {
    std::chrono::milliseconds time{0};
    std::uint64_t output = std::uint64_t{64} << 20U;  ///< bytes of standard output, and of what grows in the folder
};

/// Runs a program in a process group of its own, without a shell, to its end and returns its standard output. What it
/// leaves behind running is ended. The folder is private to it, and removed if this process ends first. Throws
/// EngineError if the program fails, in its own last words, or if it exceeds a limit.
std::string runProgram(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                       const ProgramLimits& limits);

}  // namespace tessivox::backend
