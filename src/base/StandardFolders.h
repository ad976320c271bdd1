#pragma once

#include <filesystem>

namespace tessivox::base {

/// Where this user's files go. Any of them may not exist yet.
struct StandardFolders {
    std::filesystem::path documents;           ///< XDG documents folder
    std::filesystem::path applicationSupport;  ///< XDG data home, the parent of "Tessivox"
    std::filesystem::path configuration;       ///< XDG config home, the parent of "Tessivox"
    std::filesystem::path temporary;           ///< TMPDIR or /tmp
    std::filesystem::path state{};             ///< XDG state home, the parent of "Tessivox"
};

}  // namespace tessivox::base
