#include "app/Console.h"

#include <algorithm>

namespace tessivox::app {
namespace {

bool isControl(char byte) { return (byte >= 0 && byte < ' ') || byte == '\x7f'; }

}  // namespace

std::string printable(std::string_view text) {
    std::string shown(text);
    std::ranges::replace_if(shown, isControl, ' ');
    // C1 controls, U+0080 to U+009F, are the bytes C2 80 to C2 9F.
    for (std::size_t at = 0; (at = shown.find('\xC2', at)) != std::string::npos; ++at) {
        if (at + 1 < shown.size() && static_cast<unsigned char>(shown[at + 1]) < 0xA0) shown.replace(at, 2, " ");
    }
    return shown;
}

std::string shellWord(std::string_view text) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._/+,:=@%";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos) return std::string(text);
    std::string word = "'";
    for (const char letter : text) word += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return word + "'";
}

}  // namespace tessivox::app
