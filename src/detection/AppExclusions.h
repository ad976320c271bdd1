#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/Observable.h"
#include "base/Signal.h"
#include "base/ports/Preferences.h"
#include "detection/ExclusionRow.h"
#include "detection/ports/Applications.h"
#include "detection/ports/InputUseMonitor.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::detection {

/// Which applications are no calls whatever they do with the microphone: some by themselves, some by the user's wish.
/// The stored lists may be changed from elsewhere at any time. Main thread.
class AppExclusions {
public:
    struct Parts {
        const Applications& applications;
        base::Preferences& preferences;
        telemetry::Analytics& analytics;
    };
    explicit AppExclusions(const Parts& parts);
    AppExclusions(const AppExclusions&) = delete;
    AppExclusions& operator=(const AppExclusions&) = delete;

    /// Name shown, by identifier. To be changed by the operations below alone, as the next one.
    base::Observable<std::map<std::string, std::string>> userIgnoredApps;
    /// Entries of the built-in table that the user switched off.
    base::Observable<std::set<std::string>> disabledBuiltIns;

    /// Whether a process is no call, by its own identifier or by that of the application it belongs to.
    bool isExcludedProcess(const InputProcess& process) const;

    // Each of these is stored at once.
    void addIgnoredApp(const std::string& bundleID, const std::string& name);
    void removeIgnoredApp(const std::string& bundleID);
    void setBuiltInExcluded(const std::string& bundleID, bool isExcluded);
    /// Switches all built-in entries on; the user's own stay.
    void restoreBuiltIns();

    /// Excludes the application of a desktop file, and gives its identifier; absent, and nothing done, if there is
    /// none.
    std::optional<std::string> addApplication(const std::filesystem::path& url);

    /// Built-in entries that are installed, then the user's, each by name.
    std::vector<ExclusionRow> exclusionRows() const;

private:
    Parts parts_;
    base::Subscription storeChanges_;

    void read();
    void write(std::string_view key, std::optional<base::PreferenceValue> value);
    void tell(const std::string& key, const std::string& value);
    bool covers(std::string_view bundleID) const;
    std::vector<ExclusionRow> builtInRows() const;
    std::vector<ExclusionRow> userRows() const;
};

}  // namespace tessivox::detection
