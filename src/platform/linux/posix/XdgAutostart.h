#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/ports/Files.h"
#include "core/ports/LoginItem.h"

namespace tessivox::posix {

/// The entry of the desktop's autostart folder (Desktop Application Autostart Specification 0.5). Errors are
/// base::FileError.
class XdgAutostart final : public core::LoginItem {
public:
    /// `configuration` is the XDG config home; the program's path is absolute.
    XdgAutostart(base::Files& files, const std::filesystem::path& configuration, std::filesystem::path program,
                 std::vector<std::string> arguments);

    void registerItem() override;
    void unregisterItem() override;

private:
    base::Files& files_;
    std::filesystem::path folder_;
    std::filesystem::path entry_;
    std::string command_;
};

}  // namespace tessivox::posix
