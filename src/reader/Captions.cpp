#include "reader/Captions.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "base/Characters.h"
#include "base/Text.h"

namespace tessivox::reader {
namespace {

using std::string_view;

/// About what subtitles for everybody ask of a reader.
constexpr double kReadingSpeed = 15;  // characters a second
constexpr double kShortest = 1.5;     // seconds
/// Damaged files may claim any time; no recording lasts longer than this.
constexpr double kLatest = 9999 * 3600.0;  // seconds
constexpr string_view kZeroWidthSpace = "\u200B";

double readingTime(const Caption& caption) {
    std::size_t characters = 0;
    for (const auto line : caption.lines) characters += base::characterCount(line);
    return std::max(static_cast<double>(characters) / kReadingSpeed, kShortest);
}

bool isBlank(string_view text) { return base::trimmed(text).empty(); }

bool hasTime(const Segment& segment) { return segment.time.find_first_of("0123456789") != string_view::npos; }

/// Without their ends.
std::vector<Caption> begunCaptions(std::span<const Segment> segments) {
    std::vector<Caption> captions;
    for (const auto& segment : segments) {
        if (isBlank(segment.text)) continue;
        const bool isTimed = hasTime(segment) || captions.empty();
        if (!isTimed && segment.speaker.empty()) {
            captions.back().lines.push_back(segment.text);
        } else {
            const auto start = isTimed ? std::clamp(segment.start, 0.0, kLatest) : captions.back().start;
            captions.push_back({start, 0, segment.speaker, {segment.text}});
        }
    }
    return captions;
}

/// Hours, minutes, seconds and thousandths, as both formats write them but for the sign before the last.
std::string clockText(double seconds, string_view sign) {
    const auto thousandths = std::llround(seconds * 1000);
    const auto whole = thousandths / 1000;
    return base::paddedNumber(whole / 3600, 2) + ":" + base::paddedNumber(whole / 60 % 60, 2) + ":" +
           base::paddedNumber(whole % 60, 2) + std::string(sign) + base::paddedNumber(thousandths % 1000, 3);
}

std::string timing(const Caption& caption, string_view sign) {
    return clockText(caption.start, sign) + " --> " + clockText(caption.end, sign) + "\n";
}

std::string escapedForSrt(string_view text) {
    std::string escaped;
    for (std::size_t at = 0; at < text.size(); ++at) {
        escaped += text[at];
        if (text[at] == '<' || text[at] == '{' || text.substr(at).starts_with("-->")) escaped += kZeroWidthSpace;
    }
    return escaped;
}

std::string escapedForVtt(string_view text) {
    std::string escaped;
    for (const char letter : text) {
        const string_view reference = letter == '&' ? "&amp;" : letter == '<' ? "&lt;" : letter == '>' ? "&gt;" : "";
        if (reference.empty()) {
            escaped += letter;
        } else {
            escaped += reference;
        }
    }
    return escaped;
}

}  // namespace

std::vector<Caption> captionsOf(std::span<const Segment> segments) {
    auto captions = begunCaptions(segments);
    std::ranges::stable_sort(captions, {}, &Caption::start);
    std::optional<double> nextStart;
    for (auto index = captions.size(); index-- > 0;) {
        auto& caption = captions[index];
        if (index + 1 < captions.size() && captions[index + 1].start > caption.start)
            nextStart = captions[index + 1].start;
        caption.end = nextStart.value_or(caption.start + readingTime(caption));
    }
    return captions;
}

std::string srtText(std::span<const Segment> segments) {
    std::string text;
    std::size_t number = 0;
    for (const auto& caption : captionsOf(segments)) {
        text += std::to_string(++number) + "\n" + timing(caption, ",");
        if (!caption.speaker.empty()) text += escapedForSrt(caption.speaker) + ": ";
        for (const auto line : caption.lines) text += escapedForSrt(line) + "\n";
        text += "\n";
    }
    return text;
}

std::string vttText(std::span<const Segment> segments) {
    std::string text = "WEBVTT\n\n";
    for (const auto& caption : captionsOf(segments)) {
        text += timing(caption, ".");
        if (!caption.speaker.empty()) text += "<v " + escapedForVtt(caption.speaker) + ">";
        for (const auto line : caption.lines) text += escapedForVtt(line) + "\n";
        text += "\n";
    }
    return text;
}

}  // namespace tessivox::reader
