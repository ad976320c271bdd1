#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "base/ports/Preferences.h"

namespace tessivox::core {

/// The contents of a preferences file: one JSON object (RFC 8259), a member for each key. Members that no preference
/// can have are kept as they are.
class PreferencesDocument {
public:
    /// The longest text that is read or written, in bytes.
    static constexpr std::size_t kMaxSize = std::size_t{1} << 20;

    /// Absent if the text is too long, is not JSON in UTF-8, is not an object, holds a number that no double can, or
    /// nests deeper than any settings do.
    static std::optional<PreferencesDocument> parsed(std::string_view text);

    std::optional<base::PreferenceValue> value(std::string_view key) const;
    /// Removes the key if there is no value.
    void set(std::string_view key, const std::optional<base::PreferenceValue>& value);
    /// Indented, with a newline at the end. Bytes that are not UTF-8 are replaced.
    std::string text() const;

    bool operator==(const PreferencesDocument&) const = default;

private:
    nlohmann::json object_ = nlohmann::json::object();
};

}  // namespace tessivox::core
