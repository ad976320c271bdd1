#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "detection/ports/Applications.h"
#include "platform/linux/desktop/DesktopEntries.h"
#include "platform/linux/desktop/ProcessIdentities.h"

namespace tessivox::desktop {

/// The applications of this desktop, by their desktop files. Which window has the focus is not for a program to know
/// here. Main thread; starts nothing and needs no loop.
class DesktopApplications final : public detection::Applications {
public:
    /// Both outlive it.
    DesktopApplications(DesktopEntries& entries, ProcessIdentities& identities)
        : entries_(entries), identities_(identities) {}

    std::optional<detection::HostApp> hostApp(std::int32_t pid) const override;
    std::optional<detection::RunningApplication> runningApplication(std::int32_t pid) const override;
    std::optional<std::filesystem::path> urlForApplication(const std::string& bundleID) const override;
    std::optional<std::string> bundleIdentifier(const std::filesystem::path& url) const override;
    std::optional<std::string> bundleDisplayName(const std::filesystem::path& url) const override;
    std::string iconName(const std::filesystem::path& url) const override;
    std::vector<detection::InstalledApplication> installed() const override;

private:
    DesktopEntries& entries_;
    ProcessIdentities& identities_;
};

}  // namespace tessivox::desktop
