#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "detection/ports/Applications.h"

namespace tessivox::testing {

/// A desktop with the applications that a test installs and runs.
class FakeApplications final : public detection::Applications {
public:
    /// Gives back its desktop file.
    std::filesystem::path install(const std::string& bundleID, const std::string& name) {
        const std::filesystem::path url = "/usr/share/applications/" + bundleID + ".desktop";
        installed_.insert_or_assign(bundleID, detection::InstalledApplication{bundleID, name, url});
        return url;
    }
    void uninstall(const std::string& bundleID) { installed_.erase(bundleID); }
    /// The process runs, and belongs to that application if it is installed.
    void run(std::int32_t pid, const std::string& bundleID, const std::string& name, bool isActive = false) {
        running_.insert_or_assign(pid, detection::RunningApplication{true, isActive, name});
        own(pid, bundleID);
    }
    void run(std::int32_t pid, detection::RunningApplication application) {
        running_.insert_or_assign(pid, std::move(application));
    }
    /// The process is a helper of that application.
    void own(std::int32_t pid, const std::string& bundleID) { owners_.insert_or_assign(pid, bundleID); }
    void quit(std::int32_t pid) {
        running_.erase(pid);
        owners_.erase(pid);
    }

    // Applications
    std::optional<detection::HostApp> hostApp(std::int32_t pid) const override {
        const auto owner = owners_.find(pid);
        if (owner == owners_.end()) return std::nullopt;
        const auto url = urlForApplication(owner->second);
        return url ? std::optional(detection::HostApp{owner->second, *url}) : std::nullopt;
    }
    std::optional<detection::RunningApplication> runningApplication(std::int32_t pid) const override {
        const auto found = running_.find(pid);
        return found == running_.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<std::filesystem::path> urlForApplication(const std::string& bundleID) const override {
        const auto found = installed_.find(bundleID);
        return found == installed_.end() ? std::nullopt : std::optional(found->second.url);
    }
    std::optional<std::string> bundleIdentifier(const std::filesystem::path& url) const override {
        const auto* found = at(url);
        return found ? std::optional(found->bundleID) : std::nullopt;
    }
    std::optional<std::string> bundleDisplayName(const std::filesystem::path& url) const override {
        const auto* found = at(url);
        return found && !found->name.empty() ? std::optional(found->name) : std::nullopt;
    }
    std::string iconName(const std::filesystem::path& url) const override { return at(url) ? url.stem() : ""; }
    std::vector<detection::InstalledApplication> installed() const override {
        std::vector<detection::InstalledApplication> all;
        for (const auto& [bundleID, application] : installed_) all.push_back(application);
        return all;
    }

private:
    std::map<std::string, detection::InstalledApplication> installed_;
    std::map<std::int32_t, detection::RunningApplication> running_;
    std::map<std::int32_t, std::string> owners_;

    const detection::InstalledApplication* at(const std::filesystem::path& url) const {
        for (const auto& [bundleID, application] : installed_) {
            if (application.url == url) return &application;
        }
        return nullptr;
    }
};

}  // namespace tessivox::testing
