#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Console.h"
#include "app/ExitCode.h"
#include "base/ports/Files.h"
#include "base/ports/Preferences.h"
#include "core/AppSettings.h"

namespace tessivox::app {

/// `tessivox get` and `tessivox set`: the settings by their keys, as texts. What the program keeps for itself in the
/// same store, such as what the server knows this computer by, is no setting and cannot be reached. Main thread.
class SettingsCommands {
public:
    struct Parts {
        core::AppSettings& settings;  ///< over the store itself, so that what is set stays
        base::Preferences& preferences;
        base::Files& files;
        Console& console;
    };
    explicit SettingsCommands(const Parts& parts);

    /// Writes the value of one setting, or "key=value" for each. A part of an address that may be a secret is hidden.
    ExitCode get(const std::optional<std::string>& key) const;
    /// Throws base::FileError if a recordings folder cannot be made.
    ExitCode set(const std::string& key, const std::string& value) const;

private:
    struct Key {
        std::string_view name;
        std::string_view expected;  ///< what its value has to be
        std::function<std::string()> get;
        std::function<bool(const std::string& value)> set;  ///< false if the value makes no sense
    };
    Parts parts_;
    std::vector<Key> keys_;

    const Key* find(const std::string& name) const;
    ExitCode refuse(std::string_view english, const std::string& first, std::string_view second = {}) const;
    Key recordingsFolder() const;
    Key quality() const;
    Key server() const;
    static Key onOrOff(std::string_view name, core::Setting<bool>& setting);
    static Key microphone(core::Setting<std::string>& setting);
};

}  // namespace tessivox::app
