#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "backend/engines/Captions.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

constexpr std::string_view kArrow = "-->";
constexpr std::size_t kLongestCue = 16'000;  // bytes

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t countDigits(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
}

/// Takes a number of at most nine digits off the front.
std::optional<std::uint32_t> takeNumber(std::string_view& text) {
    const auto digits = countDigits(text);
    if (digits == 0 || digits > 9) return std::nullopt;
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + digits, number);
    text.remove_prefix(digits);
    return number;
}

/// "[hh:]mm:ss[.fff]", with a comma in SRT, in seconds.
std::optional<double> parseTime(std::string_view text) {
    double seconds = 0;
    int fields = 0;
    while (true) {
        const auto number = takeNumber(text);
        if (!number || ++fields > 3) return std::nullopt;
        seconds = seconds * 60 + *number;
        if (!text.starts_with(':')) break;
        text.remove_prefix(1);
    }
    if (fields < 2) return std::nullopt;
    if (text.starts_with('.') || text.starts_with(',')) {
        text.remove_prefix(1);
        double scale = 0.1;
        for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1), scale /= 10) {
            seconds += (text.front() - '0') * scale;
        }
    }
    return text.empty() ? std::optional(seconds) : std::nullopt;
}

struct Cue {
    double start = 0;
    double end = 0;
    std::string text;
    std::string speaker;
    bool isWhole = false;  ///< whisper.cpp's lines hold times and text
};

/// A line with the times of a cue: "TIME --> TIME settings" or "[TIME --> TIME] text".
std::optional<Cue> parseTimes(std::string_view line) {
    const auto arrow = line.find(kArrow);
    if (arrow == line.npos) return std::nullopt;
    auto left = base::trimmed(line.substr(0, arrow));
    auto right = base::trimmed(line.substr(arrow + kArrow.size()));
    const bool isWhole = left.starts_with('[');
    if (isWhole) left.remove_prefix(1);
    const auto size = std::min(right.find_first_of(isWhole ? "]" : " \t"), right.size());
    if (isWhole && size == right.size()) return std::nullopt;
    const auto start = parseTime(base::trimmed(left));
    const auto end = parseTime(base::trimmed(right.substr(0, size)));
    if (!start || !end) return std::nullopt;
    return Cue{*start, *end, isWhole ? std::string(right.substr(size + 1)) : std::string(), {}, isWhole};
}

/// The character that an entity of WebVTT stands for; empty if it is none.
std::string_view entityValue(std::string_view entity) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kEntities = {
        {{"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&nbsp;", " "}, {"&lrm;", " "}, {"&rlm;", " "}}};
    for (const auto& [name, value] : kEntities) {
        if (entity.starts_with(name)) return value;
    }
    return {};
}

/// The size of a tag such as "<i>", "</v>" or "<00:01.000>" that the text begins with; 0 if it is none.
std::size_t tagSize(std::string_view text) {
    constexpr std::size_t kLongestTag = 100;
    const auto end = text.substr(0, kLongestTag).find('>');
    if (end == text.npos || end < 2) return 0;
    auto name = text.substr(1, end - 1);
    if (name.starts_with('/')) name.remove_prefix(1);
    if (!name.empty() && isDigit(name.front())) return parseTime(name) ? end + 1 : 0;
    name = name.substr(0, name.find_first_of(" .\t"));
    constexpr std::array<std::string_view, 9> kNames = {"b", "c", "font", "i", "lang", "rt", "ruby", "u", "v"};
    return std::ranges::count(kNames, name) > 0 ? end + 1 : 0;
}

/// The name in "<v Bob>" or "<v.loud Bob>".
std::string_view voiceOf(std::string_view tag) {
    if (!tag.starts_with("<v ") && !tag.starts_with("<v.")) return {};
    const auto blank = tag.find(' ');
    return blank == tag.npos ? std::string_view() : tag.substr(blank + 1, tag.size() - blank - 2);
}

/// Text without its markup; the first voice in it becomes the cue's speaker.
std::string plainText(std::string_view text, std::string& speaker) {
    std::string plain;
    while (!text.empty()) {
        std::size_t taken = 1;
        if (const auto size = text.front() == '<' ? tagSize(text) : 0; size > 0) {
            if (const auto voice = voiceOf(text.substr(0, size)); speaker.empty() && !voice.empty()) speaker = voice;
            taken = size;
        } else if (const auto value = text.front() == '&' ? entityValue(text) : std::string_view(); !value.empty()) {
            plain += value;
            taken = text.find(';') + 1;
        } else {
            plain += text.front();
        }
        text.remove_prefix(taken);
    }
    return plain;
}

/// Gathers the lines of one cue after another.
class CueReader {
public:
    explicit CueReader(Captions& captions) : captions_(captions) {}

    void take(std::string_view line) {
        if (auto next = parseTimes(line)) {
            begin(std::move(*next));
        } else if (base::trimmed(line).empty()) {
            finish();
        } else if (cue_) {
            append(line);
        }
    }

    void finish() {
        if (!cue_) return;
        const auto text = plainText(cue_->text, cue_->speaker);
        captions_.add(cue_->start, cue_->end, text, cue_->speaker);
        cue_.reset();
    }

    bool hasFoundAny() const { return hasFoundAny_; }

private:
    Captions& captions_;
    std::optional<Cue> cue_;
    std::size_t lastLine_ = 0;  ///< where it begins in the cue's text
    bool hasFoundAny_ = false;

    void begin(Cue next) {
        // Without an empty line between cues the number of the next one looks like text of the last.
        if (cue_ && !next.isWhole && countDigits(base::trimmed(cue_->text.substr(lastLine_))) > 0) dropNumber();
        finish();
        hasFoundAny_ = true;
        cue_ = std::move(next);
        lastLine_ = 0;
        if (cue_->isWhole) finish();
    }

    void dropNumber() {
        const auto line = base::trimmed(std::string_view(cue_->text).substr(lastLine_));
        if (countDigits(line) == line.size()) cue_->text.resize(lastLine_);
    }

    void append(std::string_view line) {
        if (cue_->text.size() > kLongestCue) return;
        lastLine_ = cue_->text.size();
        cue_->text += ' ';
        cue_->text += line.substr(0, kLongestCue);
    }
};

}  // namespace

bool readTimedLines(std::string_view text, Captions& captions) {
    if (text.find(kArrow) == text.npos) return false;
    CueReader reader(captions);
    while (!text.empty()) {
        const auto size = std::min(text.find('\n'), text.size());
        reader.take(text.substr(0, size));
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    reader.finish();
    return reader.hasFoundAny();
}

}  // namespace tessivox::backend
