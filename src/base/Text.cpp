#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace tessivox::base {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

/// English texts whose words name what a Linux desktop lacks.
constexpr std::array kCatalogue{
    Entry{"Microphone permission denied. Please enable in System Settings.",
          "The sound server refused access to the microphone. Allow it in your desktop's privacy settings."},
    Entry{"Screen Recording permission denied. Please enable in System Settings.",
          "The sound server refused access to the computer's sound. Allow it in your desktop's privacy settings."},
    Entry{"Screen Recording permission denied", "The sound server refused access to the computer's sound"},
    Entry{"No display found for audio capture",
          "The computer's sound cannot be recorded: the sound server has no output device with a monitor"},
};

}  // namespace

std::string localized(std::string_view english) {
    const auto found = std::ranges::find(kCatalogue, english, &Entry::first);
    return std::string(found == kCatalogue.end() ? english : found->second);
}

std::string filled(std::string text, std::initializer_list<std::string_view> values) {
    std::string result;
    for (std::size_t position = 0; position < text.size();) {
        const bool isPlace = text[position] == '{' && position + 2 < text.size() && text[position + 2] == '}';
        const auto index = isPlace ? static_cast<std::size_t>(text[position + 1] - '0') : values.size();
        if (index < values.size()) {
            result += values.begin()[index];
            position += 3;
        } else {
            result += text[position++];
        }
    }
    return result;
}

std::string paddedNumber(long long number, int width) {
    auto digits = std::to_string(number);
    if (digits.size() < static_cast<std::size_t>(width))
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
    return digits;
}

std::string fixedNumber(double number, int decimals) {
    std::array<char, 64> digits{};
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, decimals);
    return error == std::errc() ? std::string(digits.data(), end) : std::string("?");
}

}  // namespace tessivox::base
