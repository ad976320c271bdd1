#include "reader/ReaderParsing.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "base/Characters.h"
#include "base/Text.h"

namespace tessivox::reader {
namespace {

using std::string_view;
using Buffer = std::shared_ptr<const std::string>;

constexpr string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr string_view kTitleLabel = "title:";
constexpr string_view kDateLabel = "date:";
/// What stands before a colon is a sentence's beginning from this length on, not a name.
constexpr std::size_t kTooLongForSpeaker = 25;  // characters
/// For the first guess at the number of lines; memory that is not used is not touched.
constexpr std::size_t kShortLine = 64;  // bytes

bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }

/// Without spaces and tabs at both ends.
string_view trimmedBlanks(string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

Buffer soundBuffer(std::string text) {
    if (!base::isUTF8(text)) text = base::repairedUTF8(text);
    return std::make_shared<const std::string>(std::move(text));
}

/// Calls with each line that is not empty.
template <typename Take>
void forEachLine(string_view text, const Take& take) {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        auto line = text.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.empty()) take(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

/// No text has fewer bytes than characters, so these are rarely counted.
bool isSpeaker(string_view candidate) {
    if (candidate.size() < kTooLongForSpeaker) return true;
    return base::firstCharacters(candidate, kTooLongForSpeaker - 1).size() == candidate.size();
}

Segment segmentOf(string_view line) {
    const auto bracket = line.starts_with('[') ? line.find(']') : string_view::npos;
    Segment segment;
    segment.text = line;
    if (bracket == string_view::npos) return segment;

    segment.time = line.substr(1, bracket - 1);
    segment.start = parseTime(segment.time);
    segment.text = trimmedBlanks(line.substr(bracket + 1));
    const auto colon = segment.text.find(':');
    if (colon == string_view::npos) return segment;
    const auto candidate = trimmedBlanks(segment.text.substr(0, colon));
    if (!isSpeaker(candidate)) return segment;
    segment.speaker = candidate;
    segment.text = trimmedBlanks(segment.text.substr(colon + 1));
    return segment;
}

/// Almost all times are made of a few digits and colons, which need no more than this.
std::optional<double> plainTime(string_view time) {
    if (time.size() > 9) return std::nullopt;
    int seconds = 0, number = 0;
    bool isInNumber = false;
    for (const char letter : time) {
        if (letter >= '0' && letter <= '9') {
            number = number * 10 + (letter - '0');
            isInNumber = true;
        } else if (letter == ':') {
            if (isInNumber) seconds = seconds * 60 + number;
            number = 0;
            isInNumber = false;
        } else {
            return std::nullopt;
        }
    }
    return isInNumber ? seconds * 60.0 + number : seconds;
}

std::optional<double> numberIn(string_view text) {
    double number = 0;
    const auto* textEnd = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), textEnd, number);
    return error == std::errc() && end == textEnd && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

char lowerCased(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
}

/// Where the lower-case text first stands, in whatever case.
std::size_t findIgnoringCase(string_view text, string_view lowerCase) {
    const auto isSame = [](char letter, char wanted) { return lowerCased(letter) == wanted; };
    const auto found = std::search(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(), isSame);
    return found == text.end() ? string_view::npos : static_cast<std::size_t>(found - text.begin());
}

string_view withoutTitleLabel(string_view heading) {
    const auto label = findIgnoringCase(heading, kTitleLabel);
    return label == string_view::npos ? heading : trimmedBlanks(heading.substr(label + kTitleLabel.size()));
}

/// Of a line that is trimmed and not empty.
Block blockOf(string_view line) {
    if (line.starts_with("### ")) return {Block::Kind::h3, line.substr(4)};
    if (line.starts_with("## ")) return {Block::Kind::h2, line.substr(3)};
    if (line.starts_with("# ")) return {Block::Kind::h1, withoutTitleLabel(line.substr(2))};
    if (line.starts_with("* ") || line.starts_with("- ")) return {Block::Kind::bullet, line.substr(2)};
    if (findIgnoringCase(line.substr(0, kDateLabel.size()), kDateLabel) == 0) return {Block::Kind::meta, line};
    return {Block::Kind::paragraph, line};
}

std::string withoutStars(string_view text) {
    std::string plain;
    for (auto stars = text.find("**"); stars != string_view::npos; stars = text.find("**")) {
        plain += text.substr(0, stars);
        text.remove_prefix(stars + 2);
    }
    return plain += text;
}

/// All but the text.
StyledParagraph styleOf(Block::Kind kind) {
    switch (kind) {
        case Block::Kind::h1:
            return {{}, 18, FontWeight::bold, ColorRole::label, 8, 0, 0};
        case Block::Kind::h2:
            return {{}, 16, FontWeight::semibold, ColorRole::label, 4, 8, 0};
        case Block::Kind::h3:
            return {{}, 14, FontWeight::semibold, ColorRole::secondaryLabel, 3, 6, 0};
        case Block::Kind::bullet:
            return {{}, 15, FontWeight::regular, ColorRole::label, 3, 0, 18};
        case Block::Kind::paragraph:
            return {{}, 15, FontWeight::regular, ColorRole::label, 6, 0, 0};
        case Block::Kind::meta:
            return {{}, 12, FontWeight::regular, ColorRole::tertiaryLabel, 6, 0, 0};
    }
    return {};
}

std::string shownText(const Block& block) {
    if (block.kind == Block::Kind::meta) return std::string(block.text) + "\n";
    return (block.kind == Block::Kind::bullet ? "\u2022  " : "") + withoutStars(block.text) + "\n";
}

double channel(string_view hexadecimal) {
    unsigned byte = 0;
    std::from_chars(hexadecimal.data(), hexadecimal.data() + hexadecimal.size(), byte, 16);
    return byte / 255.0;
}

}  // namespace

Transcript parseTranscript(std::string text) {
    auto buffer = soundBuffer(std::move(text));
    std::vector<Segment> segments;
    segments.reserve(buffer->size() / kShortLine);
    forEachLine(*buffer, [&](string_view line) { segments.push_back(segmentOf(line)); });
    return {std::move(buffer), std::move(segments)};
}

double parseTime(string_view time) {
    if (const auto seconds = plainTime(time)) return *seconds;
    double seconds = 0;
    while (!time.empty()) {
        const auto end = std::min(time.find(':'), time.size());
        if (end > 0) {
            if (const auto number = numberIn(time.substr(0, end))) seconds = seconds * 60 + *number;
        }
        time.remove_prefix(std::min(end + 1, time.size()));
    }
    return std::isfinite(seconds) ? seconds : 0;
}

Summary parseBlocks(std::string text) {
    auto buffer = soundBuffer(std::move(text));
    std::vector<Block> blocks;
    forEachLine(*buffer, [&](string_view line) {
        const auto content = trimmedBlanks(line);
        if (!content.empty()) blocks.push_back(blockOf(content));
    });
    return {std::move(buffer), std::move(blocks)};
}

ChannelColor SpeakerColor::resolved(bool isDark) const {
    const auto value = isDark ? dark : light;
    return {channel(value.substr(0, 2)), channel(value.substr(2, 2)), channel(value.substr(4, 2))};
}

std::map<std::string, SpeakerColor, std::less<>> speakerColors(std::span<const Segment> segments) {
    std::map<std::string, SpeakerColor, std::less<>> colors;
    for (const auto& segment : segments) {
        if (segment.speaker.empty() || colors.contains(segment.speaker)) continue;
        const auto& color = speakerPalette[colors.size() % speakerPalette.size()];
        colors.emplace(segment.speaker, color);
    }
    return colors;
}

std::vector<StyledParagraph> summaryAttributedString(std::string text) {
    std::vector<StyledParagraph> paragraphs;
    for (const auto& block : parseBlocks(std::move(text))) {
        paragraphs.push_back(styleOf(block.kind));
        paragraphs.back().text = shownText(block);
    }
    return paragraphs;
}

}  // namespace tessivox::reader
