#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tessivox::detection {

/// One line of the list of applications that are never asked about.
struct ExclusionRow {
    std::string id;  ///< the application's identifier
    std::string name;
    std::optional<std::filesystem::path> appURL;  ///< absent if it is not installed
    bool isBuiltIn = false;
    bool isExcluded = false;

    bool operator==(const ExclusionRow&) const = default;
};

}  // namespace tessivox::detection
