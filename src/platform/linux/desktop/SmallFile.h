#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace tessivox::desktop {

/// Contents of a regular file, if it has at most `limit` bytes. Never waits for a writer, as a pipe in its place would.
std::optional<std::string> readSmallFile(const std::filesystem::path& path, std::size_t limit);

/// The same of a file in a folder that others may have furnished: the name is no link, nor does the read leave the
/// folder.
std::optional<std::string> readSmallFileIn(const std::filesystem::path& folder, const char* name, std::size_t limit);

}  // namespace tessivox::desktop
