#include "library/RecordingName.h"

#include <algorithm>

#include "audio/RecordingFiles.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

using base::localized;

std::string_view withoutTimeStamp(std::string_view name) {
    constexpr std::string_view kPattern = "0000-00-00_00-00-00";
    const auto matches = [](char pattern, char letter) {
        return pattern == '0' ? letter >= '0' && letter <= '9' : letter == pattern;
    };
    if (name.size() < kPattern.size() || !std::ranges::equal(kPattern, name.substr(0, kPattern.size()), matches))
        return name;
    name.remove_prefix(kPattern.size());
    if (name.starts_with('_')) name.remove_prefix(1);
    return name;
}

}  // namespace

std::optional<std::string> titleFromBaseName(std::string_view name) {
    std::string title(withoutTimeStamp(name));
    if (title.find(' ') == std::string::npos) std::ranges::replace(title, '-', ' ');
    title = std::string(base::trimmed(title));
    if (title.empty() || !base::isUTF8(title)) return std::nullopt;
    return title;
}

void requireUsableBaseName(std::string_view name) {
    const auto refuse = [](std::string_view sentence) { throw RecordingNameError(localized(sentence)); };
    if (base::trimmed(name).empty()) refuse("The name is empty. Type at least one letter or digit.");
    if (name.find('/') != std::string_view::npos)
        refuse("A name cannot contain \"/\". Leave it out, or use a hyphen instead.");
    if (name.find('\0') != std::string_view::npos) refuse("The name contains a character that files cannot have.");
    if (name.starts_with('.')) refuse("A name that starts with a dot is hidden. Start it with another character.");
    if (name.size() > audio::RecordingFiles::kLongestBase)
        refuse("The name is too long. Shorten it to 243 bytes at most.");
}

std::filesystem::path sibling(const std::filesystem::path& recording, std::string_view suffix) {
    return recording.parent_path() / (recording.stem().native() + std::string(suffix));
}

}  // namespace tessivox::library
