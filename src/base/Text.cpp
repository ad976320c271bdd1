#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
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
    Entry{"Show in Finder", "Show in File Manager"},
};

constexpr std::array<std::string_view, 25> kWhiteSpace{
    " ",      "\t",     "\n",     "\v",     "\f",     "\r",     "\u0085", "\u00a0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200a", "\u2028", "\u2029", "\u202f", "\u205f", "\u3000"};

/// Length of the white space character that the text begins with, in bytes; 0 if there is none.
std::size_t spaceAtStart(std::string_view text) {
    const auto isThere = [text](std::string_view space) { return text.starts_with(space); };
    const auto found = std::ranges::find_if(kWhiteSpace, isThere);
    return found == kWhiteSpace.end() ? 0 : found->size();
}

std::size_t spaceAtEnd(std::string_view text) {
    const auto isThere = [text](std::string_view space) { return text.ends_with(space); };
    const auto found = std::ranges::find_if(kWhiteSpace, isThere);
    return found == kWhiteSpace.end() ? 0 : found->size();
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

/// Length of the UTF-8 sequence at the start of the text; 0 if there is none.
std::size_t sequenceLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    if (!std::ranges::all_of(text.substr(1, length - 1), isContinuation)) return 0;
    // Overlong forms, surrogates, and what lies beyond U+10FFFF show in the second byte.
    const auto second = static_cast<unsigned char>(text[1]);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
    return length;
}

/// Length of the ASCII text at the start, in whole blocks: most text is ASCII, and long.
std::size_t asciiAtStart(std::string_view text) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::array<std::uint64_t, 8> block{};
    std::size_t length = 0;
    for (; text.size() - length >= sizeof block; length += sizeof block) {
        std::memcpy(block.data(), text.data() + length, sizeof block);
        std::uint64_t bits = 0;
        for (const auto word : block) bits |= word;
        if ((bits & kHighBits) != 0) break;
    }
    return length;
}

/// Length of the UTF-8 text at the start.
std::size_t soundLength(std::string_view bytes) {
    std::size_t length = asciiAtStart(bytes);
    while (length < bytes.size()) {
        const auto sequence = sequenceLength(bytes.substr(length));
        if (sequence == 0) break;
        length += sequence;
        if (sequence > 1) length += asciiAtStart(bytes.substr(length));
    }
    return length;
}

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

std::string_view trimmed(std::string_view text) {
    while (const auto length = spaceAtStart(text)) text.remove_prefix(length);
    while (const auto length = spaceAtEnd(text)) text.remove_suffix(length);
    return text;
}

bool isUTF8(std::string_view bytes) { return soundLength(bytes) == bytes.size(); }

std::string repairedUTF8(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const auto length = soundLength(bytes);
        text += bytes.substr(0, length);
        if (length < bytes.size()) text += "\uFFFD";
        bytes.remove_prefix(std::min(length + 1, bytes.size()));
    }
    return text;
}

std::string percentEncoded(std::string_view bytes) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        if (kPlain.find(byte) != std::string_view::npos) {
            text += byte;
        } else {
            const auto value = static_cast<unsigned char>(byte);
            text += {'%', kDigits[value >> 4U], kDigits[value & 15U]};
        }
    }
    return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            bytes += text[at];
            continue;
        }
        const auto digits = text.substr(at + 1, 2);
        unsigned value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (error != std::errc() || digits.size() != 2 || end != digits.data() + 2) return std::nullopt;
        bytes += static_cast<char>(value);
        at += 2;
    }
    return bytes;
}

}  // namespace tessivox::base
