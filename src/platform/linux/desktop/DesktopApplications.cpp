#include "platform/linux/desktop/DesktopApplications.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <algorithm>
#include <memory>

#include "base/NameOrder.h"
#include "platform/linux/desktop/UntrustedText.h"

namespace tessivox::desktop {
namespace {

struct Unref {
    void operator()(GDesktopAppInfo* info) const { g_object_unref(info); }
};
using Info = std::unique_ptr<GDesktopAppInfo, Unref>;

/// Null for a file that describes no application that could be started.
Info read(const std::filesystem::path& file) {
    return Info(file.empty() ? nullptr : g_desktop_app_info_new_from_filename(file.c_str()));
}

std::string nameOf(const Info& info) {
    const std::unique_ptr<char, decltype(&g_free)> name(
        info ? g_desktop_app_info_get_locale_string(info.get(), "Name") : nullptr, &g_free);
    return safeName(name ? name.get() : "");
}

}  // namespace

std::optional<detection::HostApp> DesktopApplications::hostApp(std::int32_t pid) const {
    const auto identity = identities_.identify(pid);
    if (!identity || !identity->isApplication) return std::nullopt;
    return detection::HostApp{identity->identifier, identity->entry};
}

std::optional<detection::RunningApplication> DesktopApplications::runningApplication(std::int32_t pid) const {
    const auto identity = identities_.identify(pid);
    if (!identity || identity->pid <= 0) return std::nullopt;
    detection::RunningApplication result;
    const auto name = nameOf(read(identity->entry));
    result.isRegular = identity->isApplication && !name.empty();
    result.localizedName = name.empty() ? safeName(identity->name) : name;
    return result;
}

std::optional<std::filesystem::path> DesktopApplications::urlForApplication(const std::string& bundleID) const {
    const auto* entry = identities_.entryFor(bundleID);
    return entry ? std::optional(entry->path) : std::nullopt;
}

std::optional<std::string> DesktopApplications::bundleIdentifier(const std::filesystem::path& url) const {
    entries_.refresh();
    const auto* entry = entries_.byPath(url);
    return entry ? std::optional(ProcessIdentities::identifierOf(*entry)) : std::nullopt;
}

std::optional<std::string> DesktopApplications::bundleDisplayName(const std::filesystem::path& url) const {
    auto name = nameOf(read(url));
    return name.empty() ? std::nullopt : std::optional(std::move(name));
}

std::string DesktopApplications::iconName(const std::filesystem::path& url) const {
    const auto info = read(url);
    GIcon* const icon = info ? g_app_info_get_icon(G_APP_INFO(info.get())) : nullptr;
    if (!icon) return {};
    const std::unique_ptr<char, decltype(&g_free)> name(g_icon_to_string(icon), &g_free);
    return name ? name.get() : "";
}

std::vector<detection::InstalledApplication> DesktopApplications::installed() const {
    entries_.refresh();
    std::vector<detection::InstalledApplication> result;
    for (const auto& entry : entries_.all()) {
        const auto info = entry.isHidden ? nullptr : read(entry.path);
        if (!info || !g_app_info_should_show(G_APP_INFO(info.get()))) continue;
        const auto name = nameOf(info);
        if (!name.empty()) result.push_back({ProcessIdentities::identifierOf(entry), name, entry.path});
    }
    std::ranges::stable_sort(result, base::isNameBefore, &detection::InstalledApplication::name);
    return result;
}

}  // namespace tessivox::desktop
