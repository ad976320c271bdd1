#pragma once

#include <map>
#include <string>
#include <utility>

#include "base/Signal.h"
#include "base/ports/Preferences.h"

namespace tessivox::testing {

/// Preferences that live as long as the test.
class MemoryPreferences final : public base::Preferences {
public:
    std::optional<base::PreferenceValue> value(std::string_view key) const override {
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }
    void set(std::string_view key, std::optional<base::PreferenceValue> value) override {
        if (value) {
            values_.insert_or_assign(std::string(key), std::move(*value));
        } else {
            values_.erase(std::string(key));
        }
        changed_.emit();
    }
    base::Subscription onChange(std::function<void()> handler) override { return changed_.observe(std::move(handler)); }

private:
    std::map<std::string, base::PreferenceValue, std::less<>> values_;
    base::Signal<> changed_;
};

}  // namespace tessivox::testing
