#include "app/ExcludeCommand.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/NameOrder.h"
#include "base/Text.h"
#include "detection/CallTables.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using detection::ExclusionRow;
using detection::InstalledApplication;
using nlohmann::ordered_json;

constexpr std::string_view kDesktopFileEnding = ".desktop";

bool isPath(const std::string& app) { return app.find('/') != std::string::npos; }

bool isSameName(std::string_view left, std::string_view right) {
    return base::foldedName(left) == base::foldedName(right);
}

bool isCalled(const InstalledApplication& installed, const std::string& app) {
    return installed.bundleID == app || installed.url.filename() == app || installed.url.stem() == app;
}

/// Those that have the name, unless one has the identifier or the desktop file.
std::vector<InstalledApplication> meant(const std::vector<InstalledApplication>& installed, const std::string& app) {
    const auto exact = std::ranges::find_if(installed, [&](const auto& each) { return isCalled(each, app); });
    if (exact != installed.end()) return {*exact};
    std::vector<InstalledApplication> named;
    std::ranges::copy_if(installed, std::back_inserter(named),
                         [&](const auto& each) { return isSameName(each.name, app); });
    return named;
}

std::string identifiersOf(const std::vector<InstalledApplication>& apps) {
    std::string text;
    for (const auto& app : apps) text += (text.empty() ? "" : ", ") + printable(app.bundleID);
    return text;
}

bool isIdentifier(const std::string& app) {
    const auto isOdd = [](unsigned char letter) { return letter <= ' ' || letter == '\x7f'; };
    return base::isUTF8(app) && std::ranges::none_of(app, isOdd) && !app.ends_with(kDesktopFileEnding);
}

}  // namespace

std::string exclusionsText(const std::vector<ExclusionRow>& rows) {
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, printable(row.id).size());
    std::string text;
    for (const auto& row : rows) {
        auto id = printable(row.id);
        id.resize(width, ' ');
        text += localized(row.isExcluded ? "on   " : "off  ") + localized(row.isBuiltIn ? "built-in  " : "added     ") +
                id + "  " + printable(row.name) + "\n";
    }
    return text;
}

std::string exclusionsJSON(const std::vector<ExclusionRow>& rows) {
    auto all = ordered_json::array();
    for (const auto& row : rows) {
        auto& entry = all.emplace_back(ordered_json::object());
        entry["id"] = row.id;
        entry["name"] = row.name;
        entry["desktopFile"] = row.appURL ? ordered_json(row.appURL->string()) : ordered_json();
        entry["isBuiltIn"] = row.isBuiltIn;
        entry["isExcluded"] = row.isExcluded;
    }
    return all.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

ExitCode ExcludeCommand::run(const ExcludeOptions& options) {
    switch (options.action) {
        case ExcludeAction::list:
            return list(options.asJSON);
        case ExcludeAction::add:
            return forEach(options.apps, &ExcludeCommand::add);
        case ExcludeAction::remove:
            return forEach(options.apps, &ExcludeCommand::remove);
    }
    return ExitCode::failed;
}

ExitCode ExcludeCommand::list(bool asJSON) const {
    const auto rows = parts_.exclusions.exclusionRows();
    parts_.console.result(asJSON ? exclusionsJSON(rows) : exclusionsText(rows));
    return ExitCode::done;
}

ExitCode ExcludeCommand::forEach(const std::vector<std::string>& apps,
                                 bool (ExcludeCommand::*change)(const std::string&)) {
    bool isDone = true;
    for (const auto& app : apps) isDone = (this->*change)(app) && isDone;
    return isDone ? ExitCode::done : ExitCode::failed;
}

bool ExcludeCommand::add(const std::string& app) {
    const auto say = [&](std::string_view english, const std::string& more = {}) {
        parts_.console.message(filled(localized(english), {printable(app), more}));
        return false;
    };
    const auto found = isPath(app) ? std::vector<InstalledApplication>() : meant(parts_.applications.installed(), app);
    if (found.size() > 1) return say("Several applications are called \"{0}\": name one of {1}.", identifiersOf(found));
    if (isPath(app) || !found.empty()) {
        const auto file = found.empty() ? std::filesystem::absolute(app).lexically_normal() : found.front().url;
        if (parts_.exclusions.addApplication(file)) return true;
        return say("\"{0}\" is no application's desktop file: give one, or an application's identifier.");
    }
    if (detection::isBuiltInExclusion(app)) {
        parts_.exclusions.setBuiltInExcluded(app, true);
        return true;
    }
    const auto named = parts_.applications.urlForApplication(app);
    if (named && parts_.exclusions.addApplication(*named)) return true;
    if (!isIdentifier(app)) return say("No application is called \"{0}\": give its identifier or its desktop file.");
    parts_.exclusions.addIgnoredApp(app, app);
    say("No installed application is called \"{0}\"; one with this identifier will make no call.");
    return true;
}

bool ExcludeCommand::remove(const std::string& app) {
    const auto id = excludedID(app);
    if (!id) {
        parts_.console.message(
            filled(localized("\"{0}\" is not excluded: \"tessivox exclude list\" shows what is."), {printable(app)}));
        return false;
    }
    if (parts_.exclusions.userIgnoredApps.get().contains(*id)) parts_.exclusions.removeIgnoredApp(*id);
    if (detection::isBuiltInExclusion(*id)) parts_.exclusions.setBuiltInExcluded(*id, false);
    return true;
}

std::optional<std::string> ExcludeCommand::excludedID(const std::string& app) const {
    const auto isExcluded = [this](const std::string& id) {
        const bool isOff = parts_.exclusions.disabledBuiltIns.get().contains(id);
        return parts_.exclusions.userIgnoredApps.get().contains(id) || (detection::isBuiltInExclusion(id) && !isOff);
    };
    if (isExcluded(app)) return app;
    if (isPath(app)) {
        auto id = parts_.applications.bundleIdentifier(std::filesystem::absolute(app).lexically_normal());
        return id && isExcluded(*id) ? id : std::nullopt;
    }
    std::vector<std::string> ids;
    for (const auto& each : meant(parts_.applications.installed(), app)) ids.push_back(each.bundleID);
    for (const auto& [id, name] : parts_.exclusions.userIgnoredApps.get()) {
        if (isSameName(name, app)) ids.push_back(id);
    }
    std::erase_if(ids, [&](const auto& id) { return !isExcluded(id); });
    const auto isSame = [&](const auto& id) { return id == ids.front(); };
    return !ids.empty() && std::ranges::all_of(ids, isSame) ? std::optional(ids.front()) : std::nullopt;
}

}  // namespace tessivox::app
