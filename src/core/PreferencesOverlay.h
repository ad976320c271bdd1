#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/Signal.h"
#include "base/ports/Preferences.h"

namespace tessivox::core {

/// Preferences whose changes are never stored: what is set here hides the store's value for the life of the overlay,
/// as options of one command line do. Main thread.
class PreferencesOverlay final : public base::Preferences {
public:
    explicit PreferencesOverlay(base::Preferences& store);

    std::optional<base::PreferenceValue> value(std::string_view key) const override;
    /// An absent value makes the key read as absent, whatever the store holds.
    void set(std::string_view key, std::optional<base::PreferenceValue> value) override;
    base::Subscription onChange(std::function<void()> handler) override;

private:
    base::Preferences& store_;
    std::map<std::string, std::optional<base::PreferenceValue>, std::less<>> hiding_;
    base::Signal<> changed_;
    base::Subscription storeChanges_;
};

}  // namespace tessivox::core
