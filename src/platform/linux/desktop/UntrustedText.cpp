#include "platform/linux/desktop/UntrustedText.h"

#include <algorithm>
#include <array>

#include "base/ShortenedText.h"
#include "base/Text.h"

namespace tessivox::desktop {
namespace {

constexpr std::size_t kLongestIdentifier = 128;
constexpr std::size_t kLongestName = 256;

/// Marks, embeddings, overrides and isolates of the writing direction, and the two separators of lines, in UTF-8.
constexpr std::array<std::string_view, 15> kTurning{"\u061C", "\u200E", "\u200F", "\u2028", "\u2029",
                                                    "\u202A", "\u202B", "\u202C", "\u202D", "\u202E",
                                                    "\u2066", "\u2067", "\u2068", "\u2069", "\uFEFF"};

bool isControl(char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F; }

/// Length of what the text begins with and a name must not hold; 0 for anything else.
std::size_t lengthToDrop(std::string_view text) {
    if (isControl(text.front())) return 1;
    // The second set of control characters, U+0080 to U+009F.
    const bool isSecondSet = text.size() > 1 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0;
    if (isSecondSet) return 2;
    const auto found = std::ranges::find_if(kTurning, [&](auto mark) { return text.starts_with(mark); });
    return found == kTurning.end() ? 0 : found->size();
}

}  // namespace

std::string safeIdentifier(std::string_view text) {
    std::string result(text.substr(0, kLongestIdentifier));
    std::ranges::replace_if(
        result, [](char letter) { return letter < 0x21 || letter > 0x7E; }, '_');
    return result;
}

std::string safeName(std::string_view text) {
    const auto repaired = base::repairedUTF8(text.substr(0, 4 * kLongestName));
    std::string result;
    for (std::string_view rest = repaired; !rest.empty();) {
        const auto dropped = lengthToDrop(rest);
        if (dropped == 0) result += rest.front();
        rest.remove_prefix(std::max<std::size_t>(dropped, 1));
    }
    return std::string(base::trimmed(base::shortened(result, kLongestName)));
}

std::string lowerCased(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? char(letter - 'A' + 'a') : letter;
    });
    return result;
}

}  // namespace tessivox::desktop
