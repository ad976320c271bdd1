#include "core/PreferencesDocument.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <utility>
#include <variant>
#include <vector>

#include "base/Json.h"

namespace tessivox::core {
namespace {

using nlohmann::json;

/// Writing is recursive, so a text that only nests must not be let in.
constexpr int kMaxDepth = 64;

std::optional<base::PreferenceValue> integerValue(const json& member) {
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (member.is_number_unsigned() && member.get<std::uint64_t>() > kLargest) return std::nullopt;
    return member.get<std::int64_t>();
}

std::optional<base::PreferenceValue> listValue(const json& member) {
    if (!std::ranges::all_of(member, [](const json& element) { return element.is_string(); })) return std::nullopt;
    return member.get<std::vector<std::string>>();
}

std::optional<base::PreferenceValue> dictionaryValue(const json& member) {
    if (!std::ranges::all_of(member, [](const json& element) { return element.is_string(); })) return std::nullopt;
    return member.get<std::map<std::string, std::string>>();
}

}  // namespace

std::optional<PreferencesDocument> PreferencesDocument::parsed(std::string_view text) {
    if (text.size() > kMaxSize) return std::nullopt;
    PreferencesDocument document;
    document.object_ = base::parsedJson(text, kMaxDepth);
    if (!document.object_.is_object()) return std::nullopt;
    return document;
}

std::optional<base::PreferenceValue> PreferencesDocument::value(std::string_view key) const {
    const auto member = object_.find(key);
    if (member == object_.end()) return std::nullopt;
    if (member->is_boolean()) return member->get<bool>();
    if (member->is_number_integer()) return integerValue(*member);
    if (member->is_number_float()) return member->get<double>();
    if (member->is_string()) return member->get<std::string>();
    if (member->is_array()) return listValue(*member);
    if (member->is_object()) return dictionaryValue(*member);
    return std::nullopt;
}

void PreferencesDocument::set(std::string_view key, const std::optional<base::PreferenceValue>& value) {
    if (!value) {
        object_.erase(std::string(key));
        return;
    }
    object_[std::string(key)] = std::visit([](const auto& held) { return json(held); }, *value);
}

std::string PreferencesDocument::text() const {
    return object_.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace tessivox::core
