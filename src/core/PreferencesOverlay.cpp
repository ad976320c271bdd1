#include "core/PreferencesOverlay.h"

#include <utility>

namespace tessivox::core {

PreferencesOverlay::PreferencesOverlay(base::Preferences& store)
    : store_(store), storeChanges_(store.onChange([this] { changed_.emit(); })) {}

std::optional<base::PreferenceValue> PreferencesOverlay::value(std::string_view key) const {
    const auto hiding = hiding_.find(key);
    return hiding == hiding_.end() ? store_.value(key) : hiding->second;
}

void PreferencesOverlay::set(std::string_view key, std::optional<base::PreferenceValue> value) {
    hiding_.insert_or_assign(std::string(key), std::move(value));
    changed_.emit();
}

base::Subscription PreferencesOverlay::onChange(std::function<void()> handler) {
    return changed_.observe(std::move(handler));
}

}  // namespace tessivox::core
