#pragma once

#include <filesystem>
#include <string_view>

#include "base/ports/Files.h"

namespace tessivox::posix {

/// The error of a failed operation: `Cannot write "/x": the disk is full.` The code is an errno value.
base::FileError fileError(int code, std::string_view verb, const std::filesystem::path& path);
/// The same for an operation with two paths: `Cannot move "/x" to "/y": it already exists.`
base::FileError fileError(int code, std::string_view verb, const std::filesystem::path& from,
                          const std::filesystem::path& to);

}  // namespace tessivox::posix
