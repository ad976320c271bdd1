#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/Scheduler.h"
#include "base/SharedDocument.h"
#include "base/Signal.h"
#include "base/ports/Files.h"
#include "base/ports/Preferences.h"
#include "core/PreferencesDocument.h"

namespace tessivox::core {

/// Preferences in one JSON file, which other processes and the user's editor may change at any time. Main thread.
///
/// Each write takes a lock beside the file, reads the file again, changes what was set, and puts a new file in its
/// place that is already on the disk. A file that cannot be understood is looked at again a moment later, since an
/// editor may be writing it, and is then kept under another name. What cannot be written holds for the life of this
/// object and goes out with the next write.
class JsonPreferences final : public base::Preferences {
public:
    /// Takes a sentence for the user.
    using Report = std::function<void(const std::string& sentence)>;

    /// How long a file that cannot be understood is given to become whole.
    static constexpr base::Duration kSecondLook = std::chrono::milliseconds(200);

    /// Makes the file's folder if it is missing. `report` may be called before the constructor returns.
    JsonPreferences(base::Files& files, base::Scheduler& scheduler, std::filesystem::path file, Report report);

    std::optional<base::PreferenceValue> value(std::string_view key) const override;
    void set(std::string_view key, std::optional<base::PreferenceValue> value) override;
    base::Subscription onChange(std::function<void()> handler) override;
    /// Whether everything that was set is on the disk.
    bool isSaved() const { return unsaved_.empty(); }

private:
    struct Damaged {};
    struct Unreadable {
        std::string reason;
    };
    /// A file that is not there reads as an empty document.
    using Reading = std::variant<PreferencesDocument, Damaged, Unreadable>;

    base::Files& files_;
    base::Scheduler& scheduler_;
    base::SharedDocument document_;
    const std::filesystem::path& file_ = document_.path();
    const Report report_;
    PreferencesDocument stored_;  ///< as last read or written
    std::map<std::string, std::optional<base::PreferenceValue>, std::less<>> unsaved_;
    PreferencesDocument shown_;  ///< what readers see: stored_ with unsaved_ on top
    std::string lastTrouble_;    ///< why the file could not be read, as reported
    base::Signal<> changed_;
    base::Timer secondLook_;
    base::Subscription watch_;
    bool isWatching_ = false;
    bool hasGivenUp_ = false;  ///< a damaged file could not be kept aside

    Reading read() const;
    void refresh();
    void take(const Reading& reading);
    void save();
    void write();
    void lookAgain();
    void keepAside();
    void show();
    void watch();
    PreferencesDocument withUnsaved() const;
};

}  // namespace tessivox::core
