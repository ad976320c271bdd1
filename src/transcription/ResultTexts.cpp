#include "transcription/ResultTexts.h"

#include <algorithm>
#include <array>

#include "base/Characters.h"
#include "base/Text.h"

namespace tessivox::transcription {
namespace {

constexpr std::size_t kShortestTitle = 4;
constexpr std::size_t kLongestSlug = 50;

/// Takes one line and its end, CR LF being one end, off the text.
std::string_view takeLine(std::string_view& text) {
    const auto end = text.find_first_of("\r\n\v\f");
    const auto line = text.substr(0, end);
    const std::size_t length = end == text.npos ? 0 : text.substr(end).starts_with("\r\n") ? 2 : 1;
    text.remove_prefix(line.size() + length);
    return line;
}

std::string_view trimmedOf(std::string_view text, std::string_view characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(characters) + 1 - first);
}

std::string_view withoutBlanks(std::string_view text) { return trimmedOf(text, " \t"); }

/// Without any of the texts at both ends.
template <std::size_t Count>
std::string_view trimmedOf(std::string_view text, const std::array<std::string_view, Count>& all) {
    for (bool isDone = false; !isDone;) {
        isDone = true;
        for (const auto one : all) {
            if (text.starts_with(one)) {
                text.remove_prefix(one.size());
                isDone = false;
            } else if (text.ends_with(one)) {
                text.remove_suffix(one.size());
                isDone = false;
            }
        }
    }
    return text;
}

/// No letter outside ASCII becomes one of ASCII that these comparisons look for.
bool startsWithIgnoringCase(std::string_view text, std::string_view lowerCase) {
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return text.size() >= lowerCase.size() &&
           std::ranges::equal(text.substr(0, lowerCase.size()), lowerCase, {}, lower);
}

std::string without(std::string_view text, std::string_view what) {
    std::string rest;
    for (auto at = text.find(what); at != text.npos; at = text.find(what)) {
        rest += text.substr(0, at);
        text.remove_prefix(at + what.size());
    }
    return rest += text;
}

/// The first paragraph after the heading "Summary", with one blank between its lines.
std::string summaryParagraph(std::string_view text) {
    while (!startsWithIgnoringCase(withoutBlanks(takeLine(text)), "## summary")) {
        if (text.empty()) return {};
    }
    std::string paragraph;
    while (!text.empty()) {
        const auto line = withoutBlanks(takeLine(text));
        if (line.starts_with('#') || (line.empty() && !paragraph.empty())) break;
        if (line.empty()) continue;
        if (!paragraph.empty()) paragraph += ' ';
        paragraph += line;
    }
    return paragraph;
}

/// Characters that steer a terminal or the direction of writing, of which file names are better without: C0, DEL and
/// C1 controls, line and paragraph separators, and Unicode's Bidi_Control.
bool isSteering(std::string_view character) {
    constexpr std::array<std::string_view, 14> kOthers{"\u061c", "\u200e", "\u200f", "\u2028", "\u2029",
                                                       "\u202a", "\u202b", "\u202c", "\u202d", "\u202e",
                                                       "\u2066", "\u2067", "\u2068", "\u2069"};
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    if (character.size() == 2 && first == 0xC2) return static_cast<unsigned char>(character[1]) < 0xA0;
    return std::ranges::find(kOthers, character) != kOthers.end();
}

std::size_t scalarLength(std::string_view text) {
    std::size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) ++length;
    return length;
}

std::string usableInNames(std::string_view title) {
    constexpr std::string_view kForbidden = "/\\:*?\"<>|";
    std::string usable;
    while (!title.empty()) {
        const auto scalar = title.substr(0, scalarLength(title));
        title.remove_prefix(scalar.size());
        if (kForbidden.find(scalar) == kForbidden.npos && !isSteering(scalar)) usable += scalar == " " ? "-" : scalar;
    }
    return usable;
}

}  // namespace

std::optional<std::string> extractTitle(std::string_view text) {
    while (!text.empty()) {
        const auto title = stripTitleLabel(stripListMarkers(base::trimmed(takeLine(text))));
        if (base::characterCount(title) >= kShortestTitle) return std::string(title);
    }
    return std::nullopt;
}

std::string_view stripListMarkers(std::string_view line) {
    while (!line.empty() && (line[0] == '#' || line[0] == '-' || line[0] == '*')) line = withoutBlanks(line.substr(1));
    return line;
}

std::string_view stripTitleLabel(std::string_view line) {
    constexpr std::array<std::string_view, 4> kLabels{"meeting title:", "meeting:", "title:", "subject:"};
    for (const auto label : kLabels) {
        if (startsWithIgnoringCase(line, label)) return withoutBlanks(line.substr(label.size()));
    }
    return line;
}

std::optional<std::string> extractGist(std::string_view text, std::size_t limit) {
    constexpr std::array<std::string_view, 6> kEnds{" ", ",", ";", ":", "\u2014", "-"};
    const auto paragraph = without(summaryParagraph(text), "**");
    const auto gist = withoutBlanks(paragraph);
    if (gist.empty()) return std::nullopt;
    if (base::characterCount(gist) <= limit) return std::string(gist);
    auto beginning = base::firstCharacters(gist, limit - 1);
    beginning = beginning.substr(0, beginning.rfind(' '));
    return std::string(trimmedOf(beginning, kEnds)) + "\u2026";
}

std::string slug(std::string_view title, std::size_t mostBytes) {
    constexpr std::string_view kEnds = "-._";
    auto text = usableInNames(title);
    const auto areHyphens = [](char one, char next) { return one == '-' && next == '-'; };
    text.erase(std::unique(text.begin(), text.end(), areHyphens), text.end());
    const auto whole = trimmedOf(text, kEnds);
    return std::string(trimmedOf(base::firstCharacters(whole, kLongestSlug, mostBytes), kEnds));
}

}  // namespace tessivox::transcription
