#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/Task.h"

namespace tessivox::core {

/// Lets the user pick one folder, or make a new one and pick that. Main thread.
class FolderChooser {
public:
    virtual ~FolderChooser() = default;
    /// The texts are localized: `prompt` labels the button that accepts. Absent if the user cancelled, and wherever
    /// nobody can be asked.
    virtual base::Task<std::optional<std::filesystem::path>> chooseFolder(std::string prompt, std::string message) = 0;
};

}  // namespace tessivox::core
