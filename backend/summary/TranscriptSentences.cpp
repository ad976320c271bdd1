#include "backend/summary/TranscriptSentences.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <set>

#include "backend/engines/Utf8.h"
#include "base/ShortenedText.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

constexpr std::size_t kLongestTranscript = std::size_t{4} << 20U;
constexpr std::size_t kMostSentences = 50'000;
constexpr std::size_t kLongestJoin = 600;  // bytes
constexpr double kWordsPerSecond = 2.5;    // of people who talk

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

double secondsOf(std::string_view time) {
    double seconds = 0;
    while (!time.empty()) {
        unsigned field = 0;
        const auto end = std::from_chars(time.data(), time.data() + time.size(), field);
        if (end.ec != std::errc()) break;
        seconds = seconds * 60 + field;
        time.remove_prefix(static_cast<std::size_t>(end.ptr - time.data()));
        if (!time.starts_with(':')) break;
        time.remove_prefix(1);
    }
    return seconds;
}

/// A line of the transcript by the grammar that its readers know.
Sentence parseLine(std::string_view line) {
    const auto close = line.find(']');
    if (!line.starts_with('[') || close == line.npos || close > 16) return {{}, {}, oneLine(line, line.size())};
    Sentence entry{oneLine(line.substr(1, close - 1), 16), {}, {}};
    if (entry.time.empty() || !isDigit(entry.time.front())) entry.time.clear();
    auto rest = base::trimmed(line.substr(close + 1));
    if (const auto colon = rest.find(':'); colon < 25) {
        entry.speaker = oneLine(rest.substr(0, colon), 100);
        rest.remove_prefix(colon + 1);
    }
    entry.text = oneLine(rest, rest.size());
    return entry;
}

/// The size of a mark that ends a sentence, with what closes after it; 0 if there is none.
std::size_t endMark(std::string_view text) {
    constexpr std::array<std::string_view, 8> kMarks = {".", "!", "?", "…", "。", "！", "？", "।"};
    constexpr std::array<std::string_view, 7> kClosers = {"\"", "'", ")", "]", "”", "’", "」"};
    const auto sizeOfOneOf = [](std::string_view rest, const auto& kinds) {
        const auto found = std::ranges::find_if(kinds, [&](auto kind) { return rest.starts_with(kind); });
        return found == kinds.end() ? 0 : found->size();
    };
    std::size_t size = 0;
    while (const auto mark = sizeOfOneOf(text.substr(size), kMarks)) size += mark;
    if (size == 0) return 0;
    while (const auto closer = sizeOfOneOf(text.substr(size), kClosers)) size += closer;
    return size;
}

/// Whether a full stop after these words only shortens the last of them: "Dr.", "e.g.", "J."
bool endsShortened(std::string_view words) {
    constexpr std::array<std::string_view, 17> kShort = {"mr",   "mrs",  "ms",     "dr",  "prof", "st",
                                                         "vs",   "eg",   "ie",     "inc", "ltd",  "fig",
                                                         "dept", "corp", "approx", "e.g", "i.e"};
    const auto word = lowered(words.substr(words.rfind(' ') + 1));
    return std::ranges::count(kShort, word) > 0 || (word.size() == 1 && isLetter(word.front()) && word != "i");
}

/// The first sentence of a text, with what parts it from the next.
std::string_view firstSentence(std::string_view text) {
    for (std::size_t at = 1; at < text.size(); ++at) {
        const auto size = endMark(text.substr(at));
        if (size == 0) continue;
        const auto end = at + size;
        if (end >= text.size()) return text;
        const bool isWide = static_cast<unsigned char>(text[at]) >= 0x80 && !text.substr(at).starts_with("…");
        if (isWide) return text.substr(0, end);
        const bool isOpen = text[end] != ' ' || end + 1 >= text.size() || isLower(text[end + 1]);
        if (!isOpen && !(text[at] == '.' && endsShortened(text.substr(0, at)))) return text.substr(0, end + 1);
        at = end - 1;
    }
    return text;
}

bool isFinished(std::string_view text) {
    for (std::size_t back = 1; back <= 8 && back <= text.size(); ++back) {
        const auto size = endMark(text.substr(text.size() - back));
        if (size == back) return true;
    }
    return false;
}

std::size_t countWords(std::string_view text) { return static_cast<std::size_t>(std::ranges::count(text, ' ')) + 1; }

/// Whether the lines hold full stops as people set them, so that a line without one is not at its sentence's end.
bool arePunctuated(const std::vector<Sentence>& lines) {
    constexpr std::size_t kWordsPerMark = 40;
    std::size_t words = 0;
    std::size_t marks = 0;
    for (const auto& line : lines) {
        words += countWords(line.text);
        marks +=
            static_cast<std::size_t>(std::ranges::count_if(line.text, [](char c) { return c == '.' || c == '?'; }));
    }
    return marks * kWordsPerMark > words;
}

/// Engines cut at pauses, also in the middle of a sentence.
bool goesOn(const Sentence& last, const Sentence& next, bool isPunctuated) {
    if (last.speaker != next.speaker || isFinished(last.text) || last.text.size() > kLongestJoin) return false;
    return isPunctuated || isLower(next.text.front()) || last.text.ends_with(',');
}

/// Takes the lines and gives out the sentences.
class SentenceReader {
public:
    void take(Sentence line) {
        if (line.text.empty()) return;
        if (!line.speaker.empty()) speakers_.insert(line.speaker);
        if (!line.time.empty()) {
            const auto end = secondsOf(line.time) + static_cast<double>(countWords(line.text)) / kWordsPerSecond;
            result_.seconds = std::max(result_.seconds, end);
        }
        lines_.push_back(std::move(line));
    }

    TranscriptSentences taken() {
        const bool isPunctuated = arePunctuated(lines_);
        for (auto line = lines_.begin(); line != lines_.end();) {
            auto whole = std::move(*line++);
            while (line != lines_.end() && goesOn(whole, *line, isPunctuated)) whole.text += ' ' + line++->text;
            split(whole);
        }
        result_.speakers = speakers_.size();
        return std::move(result_);
    }

private:
    std::vector<Sentence> lines_;
    std::set<std::string> speakers_;
    TranscriptSentences result_;

    void split(const Sentence& line) {
        std::string_view text = line.text;
        while (!text.empty() && result_.sentences.size() < kMostSentences) {
            const auto sentence = firstSentence(text);
            text.remove_prefix(sentence.size());
            result_.sentences.push_back({line.time, line.speaker, std::string(base::trimmed(sentence))});
        }
    }
};

}  // namespace

TranscriptSentences readSentences(std::string_view transcript) {
    transcript = base::shortened(transcript, kLongestTranscript);
    SentenceReader reader;
    while (!transcript.empty()) {
        const auto size = std::min(transcript.find('\n'), transcript.size());
        reader.take(parseLine(base::trimmed(transcript.substr(0, size))));
        transcript.remove_prefix(std::min(size + 1, transcript.size()));
    }
    return reader.taken();
}

}  // namespace tessivox::backend
