#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tessivox::desktop {

/// What the kernel tells of processes (proc(5)). Everything is read anew; what cannot be read is empty.
class ProcessFiles {
public:
    explicit ProcessFiles(std::filesystem::path proc = "/proc") : proc_(std::move(proc)) {}

    /// Path of the program that it runs.
    std::string executable(std::int32_t pid) const;
    std::vector<std::string> arguments(std::int32_t pid) const;
    std::int32_t parent(std::int32_t pid) const;
    /// When it began, in the kernel's ticks: tells it from an earlier process of the same number. 0 if there is none.
    std::uint64_t startTime(std::int32_t pid) const;
    /// Its control groups, a line each.
    std::string controlGroups(std::int32_t pid) const;
    /// The application that Flatpak has started it for.
    std::string flatpak(std::int32_t pid) const;
    /// The processes that go by this number in a sandbox of theirs.
    std::vector<std::int32_t> knownInSandboxAs(std::int32_t number) const;

private:
    std::filesystem::path proc_;

    std::filesystem::path folder(std::int32_t pid) const { return proc_ / std::to_string(pid); }
    std::string read(std::int32_t pid, const char* name) const;
    std::vector<std::string> status(std::int32_t pid) const;
    bool isRootServedByKernel(std::int32_t pid) const;
};

/// The last part of a path.
std::string baseName(const std::string& path);

}  // namespace tessivox::desktop
