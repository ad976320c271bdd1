#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/Signal.h"

namespace tessivox::base {

/// The types a stored preference can have.
using PreferenceValue =
    std::variant<bool, std::int64_t, double, std::string, std::vector<std::string>, std::map<std::string, std::string>>;

/// A per-user store of typed values under text keys. Main thread.
class Preferences {
public:
    virtual ~Preferences() = default;

    /// Absent if the key is not stored, or holds a type that is none of PreferenceValue's.
    virtual std::optional<PreferenceValue> value(std::string_view key) const = 0;
    /// Stores durably, or removes the key; other keys stay as they are. Readers here see it at once. A store that
    /// cannot be written keeps the value for the life of the process and reports the failure in its own way.
    virtual void set(std::string_view key, std::optional<PreferenceValue> value) = 0;
    /// Called after any change of the store, one's own or another process's.
    virtual Subscription onChange(std::function<void()> handler) = 0;
};

}  // namespace tessivox::base
