#include "detection/AppExclusions.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

#include "base/NameOrder.h"
#include "detection/CallTables.h"

namespace tessivox::detection {
namespace {

constexpr std::string_view kIgnoredAppsKey = "callDetectionIgnoredApps";
constexpr std::string_view kDisabledBuiltInsKey = "callDetectionDisabledBuiltIns";

/// An absent value, or one of another type, reads as empty.
template <typename T>
T storedOrEmpty(const base::Preferences& preferences, std::string_view key) {
    const auto value = preferences.value(key);
    const auto* typed = value ? std::get_if<T>(&*value) : nullptr;
    return typed ? *typed : T();
}

void sortByName(std::vector<ExclusionRow>& rows) {
    std::ranges::stable_sort(rows, base::isNameBefore, &ExclusionRow::name);
}

}  // namespace

AppExclusions::AppExclusions(const Parts& parts) : parts_(parts) {
    read();
    storeChanges_ = parts_.preferences.onChange([this] { read(); });
}

void AppExclusions::read() {
    const auto disabled = storedOrEmpty<std::vector<std::string>>(parts_.preferences, kDisabledBuiltInsKey);
    userIgnoredApps.set(storedOrEmpty<std::map<std::string, std::string>>(parts_.preferences, kIgnoredAppsKey));
    disabledBuiltIns.set({disabled.begin(), disabled.end()});
}

void AppExclusions::write(std::string_view key, std::optional<base::PreferenceValue> value) {
    parts_.preferences.set(key, std::move(value));
    read();
}

void AppExclusions::tell(const std::string& key, const std::string& value) {
    parts_.analytics.track(telemetry::AnalyticsEvent::settingChanged, {{"key", key}, {"value", value}});
}

bool AppExclusions::isExcludedProcess(const InputProcess& process) const {
    if (covers(process.bundleID)) return true;
    // Asked last, because the answer may have to be read from files.
    const auto host = parts_.applications.hostApp(process.pid);
    return host && covers(host->bundleID);
}

bool AppExclusions::covers(std::string_view bundleID) const {
    const auto isCoveredBy = [&](std::string_view entry) { return isCovered(bundleID, entry); };
    const auto& disabled = disabledBuiltIns.get();
    const auto isCoveredByEnabled = [&](std::string_view entry) {
        return isCoveredBy(entry) && !disabled.contains(std::string(entry));
    };
    const auto& ignored = userIgnoredApps.get();
    return std::ranges::any_of(kSystemProcesses, isCoveredBy) ||
           std::ranges::any_of(kBuiltInExclusions, isCoveredByEnabled) ||
           std::ranges::any_of(ignored, [&](const auto& app) { return isCoveredBy(app.first); });
}

void AppExclusions::addIgnoredApp(const std::string& bundleID, const std::string& name) {
    auto apps = userIgnoredApps.get();
    apps.insert_or_assign(bundleID, name);
    write(kIgnoredAppsKey, std::move(apps));
    tell("call_exclusion_added", bundleID);
}

void AppExclusions::removeIgnoredApp(const std::string& bundleID) {
    auto apps = userIgnoredApps.get();
    apps.erase(bundleID);
    write(kIgnoredAppsKey, std::move(apps));
    tell("call_exclusion_removed", bundleID);
}

void AppExclusions::setBuiltInExcluded(const std::string& bundleID, bool isExcluded) {
    auto disabled = disabledBuiltIns.get();
    if (isExcluded) {
        disabled.erase(bundleID);
    } else {
        disabled.insert(bundleID);
    }
    write(kDisabledBuiltInsKey, std::vector<std::string>(disabled.begin(), disabled.end()));
    tell(isExcluded ? "call_exclusion_builtin_on" : "call_exclusion_builtin_off", bundleID);
}

void AppExclusions::restoreBuiltIns() {
    write(kDisabledBuiltInsKey, std::nullopt);
    tell("call_exclusions_restored", "true");
}

std::optional<std::string> AppExclusions::addApplication(const std::filesystem::path& url) {
    auto bundleID = parts_.applications.bundleIdentifier(url);
    if (!bundleID || bundleID->empty()) return std::nullopt;
    if (isBuiltInExclusion(*bundleID)) {
        setBuiltInExcluded(*bundleID, true);
    } else {
        addIgnoredApp(*bundleID, parts_.applications.bundleDisplayName(url).value_or(url.stem().string()));
    }
    return bundleID;
}

std::vector<ExclusionRow> AppExclusions::exclusionRows() const {
    auto rows = builtInRows();
    auto others = userRows();
    sortByName(rows);
    sortByName(others);
    rows.insert(rows.end(), std::make_move_iterator(others.begin()), std::make_move_iterator(others.end()));
    return rows;
}

std::vector<ExclusionRow> AppExclusions::builtInRows() const {
    std::vector<ExclusionRow> rows;
    for (const auto entry : kBuiltInExclusions) {
        const std::string id(entry);
        auto url = parts_.applications.urlForApplication(id);
        if (!url) continue;
        auto name = parts_.applications.bundleDisplayName(*url).value_or(id);
        rows.push_back({id, std::move(name), std::move(url), true, !disabledBuiltIns.get().contains(id)});
    }
    return rows;
}

std::vector<ExclusionRow> AppExclusions::userRows() const {
    std::vector<ExclusionRow> rows;
    for (const auto& [id, name] : userIgnoredApps.get()) {
        if (!isBuiltInExclusion(id)) rows.push_back({id, name, parts_.applications.urlForApplication(id), false, true});
    }
    return rows;
}

}  // namespace tessivox::detection
