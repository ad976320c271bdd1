#include "backend/engines/Captions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "backend/engines/CaptionFormats.h"
#include "backend/engines/EngineError.h"
#include "backend/engines/Utf8.h"
#include "base/ShortenedText.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

constexpr std::size_t kMostUtterances = 200'000;
constexpr std::size_t kLongestText = 8000;        // bytes
constexpr std::size_t kLongestUntimedText = 300;  // bytes, so that estimated times stay near
/// The transcript's readers take a name before a colon only if it is shorter than 25 characters.
constexpr std::size_t kLongestSpeaker = 24;  // bytes

/// What engines write where nobody speaks.
bool tellsOfSilence(std::string_view text) {
    constexpr std::array<std::string_view, 6> kTexts = {"[blank_audio]", "[silence]",   "(silence)",
                                                        "[ silence ]",   "[no speech]", "[blank audio]"};
    return text.size() < 20 && std::ranges::count(kTexts, lowered(text)) > 0;
}

/// "SPEAKER_01", "spk 1" and "1" are Speaker B; a name stays, without what would end it for a reader.
std::string speakerNamed(std::string_view given) {
    auto name = oneLine(given, 200);
    std::erase_if(name, [](char c) { return c == ':' || c == '?'; });
    name = base::trimmed(base::shortened(name, kLongestSpeaker));
    const auto digits = name.find_first_of("0123456789");
    if (digits == name.npos) return name;
    auto word = lowered(std::string_view(name).substr(0, digits));
    while (!word.empty() && std::string_view(" _-").find(word.back()) != std::string_view::npos) word.pop_back();
    unsigned number = 0;
    const auto end = std::from_chars(name.data() + digits, name.data() + name.size(), number);
    const bool isNumbered = word.empty() || word == "speaker" || word == "spk" || word == "s";
    if (end.ec != std::errc() || end.ptr != name.data() + name.size() || !isNumbered) return name;
    return number < 26 ? std::string("Speaker ") + static_cast<char>('A' + number)
                       : "Speaker " + std::to_string(number);
}

/// A first part of a line, up to a sentence's end or a blank if it must be cut.
std::string_view nextPiece(std::string_view line) {
    if (line.size() <= kLongestUntimedText) return line;
    const auto most = line.substr(0, kLongestUntimedText);
    for (const std::string_view end : {". ", "? ", "! ", "; ", ", ", " "}) {
        if (const auto at = most.rfind(end); at != most.npos && at > 0) return line.substr(0, at + end.size());
    }
    return base::shortened(line, kLongestUntimedText);
}

std::vector<std::string> pieces(std::string_view text) {
    std::vector<std::string> result;
    while (!text.empty()) {
        const auto size = std::min(text.find('\n'), text.size() - 1) + 1;
        auto line = text.substr(0, size);
        text.remove_prefix(size);
        while (!line.empty()) {
            const auto piece = nextPiece(line);
            line.remove_prefix(piece.size());
            if (auto words = oneLine(piece, kLongestText); !words.empty()) result.push_back(std::move(words));
            if (result.size() > kMostUtterances) throw EngineError("The speech program returned too many lines.");
        }
    }
    return result;
}

bool beginsLikeJson(std::string_view text) { return text.starts_with('{') || text.starts_with('['); }

}  // namespace

void Captions::add(double start, double end, std::string_view text, std::string_view speaker) {
    auto words = oneLine(text, kLongestText);
    if (words.empty() || tellsOfSilence(words)) return;
    if (utterances_.size() == kMostUtterances) throw EngineError("The speech program returned too many captions.");
    const auto clamped = [&](double time) { return std::isfinite(time) ? std::clamp(time, 0.0, seconds_) : 0.0; };
    const auto begin = clamped(start);
    utterances_.push_back({begin, std::max(begin, clamped(end)), std::move(words), speakerNamed(speaker)});
}

void Captions::addUntimed(std::string_view text) {
    const auto texts = pieces(text);
    std::size_t all = 0;
    for (const auto& words : texts) all += words.size();
    const auto timeAt = [&](std::size_t bytes) {
        return seconds_ * static_cast<double>(bytes) / static_cast<double>(all);
    };
    std::size_t before = 0;
    for (const auto& words : texts) {
        add(timeAt(before), timeAt(before + words.size()), words);
        before += words.size();
    }
}

std::vector<Utterance> Captions::taken() {
    std::ranges::stable_sort(utterances_, {}, &Utterance::start);
    return std::move(utterances_);
}

std::vector<Utterance> parseCaptions(std::string_view output, double seconds) {
    if (output.size() > kMostCaptionBytes) throw EngineError("The speech program returned more than 64 MiB of text.");
    if (output.starts_with("\xEF\xBB\xBF")) output.remove_prefix(3);
    const auto text = base::trimmed(output);
    Captions captions(seconds);
    if (beginsLikeJson(text) && readCaptionJson(text, captions)) return captions.taken();
    if (!readTimedLines(text, captions) && !text.starts_with("WEBVTT")) captions.addUntimed(text);
    return captions.taken();
}

}  // namespace tessivox::backend
