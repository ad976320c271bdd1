#include "backend/speech/TranscriptText.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "base/Text.h"

namespace tessivox::backend {
namespace {

constexpr double kLongestEntry = 30;      ///< seconds
constexpr std::size_t kLongestName = 24;  ///< characters; more is taken for the beginning of a sentence

std::string timeText(double seconds) {
    const long long whole = std::isfinite(seconds) ? static_cast<long long>(std::clamp(seconds, 0.0, 1e9)) : 0;
    const std::string minutes = base::paddedNumber(whole / 60 % 60, 2) + ":" + base::paddedNumber(whole % 60, 2);
    return whole < 3600 ? minutes : base::paddedNumber(whole / 3600, 2) + ":" + minutes;
}

/// Without control characters, and with one blank between words.
std::string oneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool blank = byte <= 0x20 || byte == 0x7F;
        if (!blank) line += c;
        if (blank && !line.empty() && line.back() != ' ') line += ' ';
    }
    return std::string(base::trimmed(line));
}

/// What a reader recognises as a name: no colon, not too long.
std::string speakerName(std::string speaker) {
    std::ranges::replace(speaker, ':', ' ');
    std::string name = oneLine(speaker);
    std::size_t characters = 0;
    const auto tooMany = [&](char c) { return (c & 0xC0) != 0x80 && ++characters > kLongestName; };
    name.erase(std::ranges::find_if(name, tooMany), name.end());
    return std::string(base::trimmed(name));
}

std::string prefixed(const std::string& speaker, const std::string& text) {
    if (!speaker.empty()) return speaker + ": " + text;
    return text.find(':') == std::string::npos ? text : ": " + text;
}

Utterance cleaned(const Utterance& utterance) {
    return {utterance.start, utterance.end, oneLine(utterance.text), speakerName(utterance.speaker)};
}

bool belongTogether(const Utterance& entry, const Utterance& next) {
    return !entry.speaker.empty() && entry.speaker == next.speaker && next.end - entry.start <= kLongestEntry;
}

std::vector<Utterance> entriesOf(const std::vector<Utterance>& utterances) {
    std::vector<Utterance> entries;
    for (const Utterance& utterance : utterances) {
        const Utterance next = cleaned(utterance);
        if (next.text.empty()) continue;
        if (entries.empty() || !belongTogether(entries.back(), next)) {
            entries.push_back(next);
            continue;
        }
        entries.back().text += " " + next.text;
        entries.back().end = next.end;
    }
    return entries;
}

}  // namespace

std::string transcriptText(const std::vector<Utterance>& utterances) {
    std::string text;
    for (const Utterance& entry : entriesOf(utterances))
        text += "[" + timeText(entry.start) + "] " + prefixed(entry.speaker, entry.text) + "\n";
    return text;
}

}  // namespace tessivox::backend
