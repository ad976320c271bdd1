#include "backend/engines/Utf8.h"

#include "base/ShortenedText.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isBetween(char32_t code, char32_t first, char32_t last) { return first <= code && code <= last; }

/// White space, and controls that part words like it.
bool isBlank(char32_t code) {
    return code <= 0x20 || isBetween(code, 0x7F, 0xA0) || code == 0x1680 || isBetween(code, 0x2000, 0x200A) ||
           code == 0x2028 || code == 0x2029 || code == 0x202F || code == 0x205F || code == 0x3000;
}

/// Bidirectional controls, marks without a width, and tags (Unicode 15, categories Cf and Co). The joiners U+200C and
/// U+200D stay: words of many languages need them.
bool isHidden(char32_t code) {
    return code == 0xAD || code == 0x61C || code == 0x200B || code == 0x200E || code == 0x200F ||
           isBetween(code, 0x202A, 0x202E) || isBetween(code, 0x2060, 0x206F) || code == 0xFEFF ||
           isBetween(code, 0xFFF9, 0xFFFB) || isBetween(code, 0xE000, 0xF8FF) || code >= 0xE0000;
}

std::size_t lengthByLead(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2) return 0;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    return lead < 0xF5 ? 4 : 0;
}

char32_t decoded(std::string_view sequence) {
    const auto byte = [&](std::size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(sequence[at])); };
    if (sequence.size() == 1) return byte(0);
    auto code = byte(0) & (0x7FU >> sequence.size());
    for (std::size_t at = 1; at < sequence.size(); ++at) code = code << 6U | (byte(at) & 0x3FU);
    return code;
}

}  // namespace

Character firstCharacter(std::string_view text) {
    const auto sequence = text.substr(0, lengthByLead(static_cast<unsigned char>(text.front())));
    if (sequence.empty() || !base::isUTF8(sequence)) return {kReplacement, 1};
    return {decoded(sequence), sequence.size()};
}

void appendCharacter(std::string& text, char32_t code) {
    const auto put = [&](char32_t bits) { text += static_cast<char>(static_cast<unsigned char>(bits)); };
    if (code < 0x80) return put(code);
    if (code < 0x800) {
        put(0xC0U | code >> 6U);
    } else if (code < 0x10000) {
        put(0xE0U | code >> 12U);
        put(0x80U | (code >> 6U & 0x3FU));
    } else {
        put(0xF0U | code >> 18U);
        put(0x80U | (code >> 12U & 0x3FU));
        put(0x80U | (code >> 6U & 0x3FU));
    }
    put(0x80U | (code & 0x3FU));
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (auto& c : result) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

std::string oneLine(std::string_view text, std::size_t mostBytes) {
    std::string line;
    bool isAfterBlank = false;
    for (std::size_t size = 0; !text.empty() && line.size() <= mostBytes; text.remove_prefix(size)) {
        const auto character = firstCharacter(text);
        size = character.size;
        if (isHidden(character.code)) continue;
        if (isBlank(character.code)) {
            isAfterBlank = true;
            continue;
        }
        if (isAfterBlank && !line.empty()) line += ' ';
        isAfterBlank = false;
        appendCharacter(line, character.code);
    }
    line.resize(base::shortened(line, mostBytes).size());
    while (line.ends_with(' ')) line.pop_back();
    return line;
}

std::string briefLine(std::string_view text, std::size_t mostBytes) {
    auto line = oneLine(text, mostBytes + 1);
    if (line.size() <= mostBytes) return line;
    constexpr std::string_view kMark = "…";
    line.resize(base::shortened(line, mostBytes - kMark.size()).size());
    if (const auto blank = line.rfind(' '); blank != line.npos && blank > line.size() / 2) line.resize(blank);
    while (!line.empty() && std::string_view(" ,;:-").find(line.back()) != std::string_view::npos) line.pop_back();
    return line.append(kMark);
}

}  // namespace tessivox::backend
