#include "detection/LeftTranscriptions.h"

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/Text.h"

namespace tessivox::detection {
namespace {

/// Percent-encoded paths, since a path's bytes need not be text, and lengths in milliseconds.
constexpr std::string_view kKey = "transcribeAtNextStart";
using Stored = std::map<std::string, std::string>;

Stored stored(const base::Preferences& preferences) {
    const auto value = preferences.value(kKey);
    const auto* entries = value ? std::get_if<Stored>(&*value) : nullptr;
    return entries ? *entries : Stored{};
}

std::optional<base::Duration> lengthOf(const std::string& text) {
    std::int64_t milliseconds = 0;
    const auto* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, milliseconds);
    if (error != std::errc() || rest != end || milliseconds < 0) return std::nullopt;
    return std::chrono::milliseconds(milliseconds);
}

}  // namespace

void LeftTranscriptions::leave(const std::filesystem::path& recording, base::Duration length) {
    auto entries = stored(preferences_);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(length).count();
    entries.insert_or_assign(base::percentEncoded(recording.native()), std::to_string(milliseconds));
    preferences_.set(kKey, entries);
}

std::vector<LeftTranscriptions::Entry> LeftTranscriptions::take() {
    std::vector<Entry> entries;
    const auto left = stored(preferences_);
    for (const auto& [path, text] : left) {
        const auto recording = base::percentDecoded(path);
        const auto length = lengthOf(text);
        if (recording && length) entries.push_back({*recording, *length});
    }
    if (!left.empty()) preferences_.set(kKey, std::nullopt);
    return entries;
}

}  // namespace tessivox::detection
