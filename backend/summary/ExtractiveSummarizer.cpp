#include "backend/summary/ExtractiveSummarizer.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "backend/engines/Utf8.h"
#include "backend/summary/CuePhrases.h"
#include "backend/summary/SentenceRank.h"
#include "backend/summary/TranscriptSentences.h"
#include "base/Text.h"

namespace tessivox::backend {

const std::string_view kExtractNotice = "Extracted from the transcript; not written by a person or a language model.";

namespace {

constexpr std::size_t kFewestSentences = 5;
constexpr std::size_t kSummarySentences = 3;
constexpr std::size_t kMostActions = 8;
constexpr std::size_t kLongestSentence = 320;  // bytes
constexpr std::size_t kLongestTitle = 120;     // bytes
constexpr std::size_t kShortestTitle = 4;      // characters, below which the client looks on for another title
constexpr double kRankWeight = 0.7;            // against the cues, by reading what came of meetings' transcripts
constexpr double kTooSimilar = 0.5;            // cosine, above which a sentence says what another said

std::string plural(std::size_t count, const std::string& one) {
    return std::to_string(count) + ' ' + one + (count == 1 ? "" : "s");
}

std::string lengthText(double seconds) {
    if (seconds < 60) return "under 1 min";
    const auto minutes = std::lround(seconds / 60);
    if (minutes < 60) return std::to_string(minutes) + " min";
    const auto rest = minutes % 60;
    return std::to_string(minutes / 60) + " h" + (rest == 0 ? "" : " " + std::to_string(rest) + " min");
}

/// ", 14 min, 2 speakers"
std::string factsOf(const TranscriptSentences& transcript) {
    std::string facts;
    if (transcript.seconds > 0) facts += ", " + lengthText(transcript.seconds);
    if (transcript.speakers > 1) facts += ", " + plural(transcript.speakers, "speaker");
    return facts;
}

std::size_t countCharacters(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string headingFor(const TranscriptSentences& transcript, const std::optional<std::string>& given) {
    const auto title = given ? briefLine(*given, kLongestTitle) : std::string();
    if (countCharacters(title) >= kShortestTitle) return title;
    if (!title.empty()) return title + (factsOf(transcript).empty() ? ": notes" : factsOf(transcript));
    if (transcript.speakers > 1) return "Meeting notes" + factsOf(transcript);
    return (transcript.speakers == 1 ? "Voice notes" : "Notes") + factsOf(transcript);
}

/// A sentence as a sentence of its own: it neither looks like markup nor ends in mid-air.
std::string quoted(std::string_view text) {
    auto line = briefLine(text.substr(std::min(text.find_first_not_of("#*-> "), text.size())), kLongestSentence);
    if (line.empty()) return line;
    if (line.front() >= 'a' && line.front() <= 'z') line.front() = static_cast<char>(line.front() - 'a' + 'A');
    if (std::isalnum(static_cast<unsigned char>(line.back())) != 0) line += '.';
    return line;
}

std::string bullet(const Sentence& sentence) {
    std::string line = "- ";
    if (!sentence.time.empty()) line += "[" + sentence.time + "] ";
    if (!sentence.speaker.empty()) line += sentence.speaker + ": ";
    return line + quoted(sentence.text) + "\n";
}

/// Chooses among the sentences of one transcript.
class Extract {
public:
    explicit Extract(const TranscriptSentences& transcript)
        : sentences_(transcript.sentences), rank_(textsOf(sentences_)) {
        for (const auto& sentence : sentences_) cues_.push_back(cuesOf(sentence.text));
    }

    std::string summary() {
        const auto chosen = choose(kSummarySentences, [this](std::size_t at) {
            return points(at) - (cues_[at].isPersonal ? 0.2 : 0) - (cues_[at].action > 0 ? 0.2 : 0);
        });
        std::string paragraph;
        for (const auto at : chosen) paragraph += (paragraph.empty() ? "" : " ") + quoted(sentences_[at].text);
        return paragraph;
    }

    std::string keyPoints() {
        const auto most = std::clamp<std::size_t>(sentences_.size() / 10, 3, 8);
        return bullets(choose(most, [this](std::size_t at) { return points(at) - (cues_[at].action > 0 ? 0.3 : 0); }));
    }

    std::string actions() const {
        std::vector<std::size_t> found;
        for (std::size_t at = 0; at < sentences_.size(); ++at) {
            if (cues_[at].action > 0) found.push_back(at);
        }
        std::ranges::stable_sort(found, std::greater(), [this](std::size_t at) { return cues_[at].action; });
        found.resize(std::min(found.size(), kMostActions));
        std::ranges::sort(found);
        return bullets(found);
    }

    /// As many of the best as fit, in their order.
    std::string best(std::size_t mostBytes) const {
        std::vector<std::size_t> chosen;
        std::size_t size = 0;
        for (const auto at : inOrder([this](std::size_t s) { return points(s) + cues_[s].action * 0.3; })) {
            size += bullet(sentences_[at]).size();
            if (size > mostBytes) break;
            chosen.push_back(at);
        }
        std::ranges::sort(chosen);
        return bullets(chosen);
    }

private:
    const std::vector<Sentence>& sentences_;
    SentenceRank rank_;
    std::vector<Cues> cues_;
    std::vector<std::size_t> taken_;  ///< what the summary has said already

    static std::vector<std::string> textsOf(const std::vector<Sentence>& sentences) {
        std::vector<std::string> texts;
        for (const auto& sentence : sentences) texts.push_back(sentence.text);
        return texts;
    }

    double points(std::size_t at) const { return kRankWeight * rank_.score(at) + cues_[at].point; }

    template <typename Score>
    std::vector<std::size_t> inOrder(const Score& score) const {
        std::vector<std::size_t> order(sentences_.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::ranges::stable_sort(order, std::greater(), score);
        return order;
    }

    template <typename Score>
    std::vector<std::size_t> choose(std::size_t most, const Score& score) {
        std::vector<std::size_t> chosen;
        for (const auto at : inOrder(score)) {
            if (chosen.size() == most) break;
            const auto saysTheSame = [&](std::size_t other) { return rank_.similarity(at, other) > kTooSimilar; };
            if (std::ranges::any_of(taken_, saysTheSame) || quoted(sentences_[at].text).empty()) continue;
            chosen.push_back(at);
            taken_.push_back(at);
        }
        std::ranges::sort(chosen);
        return chosen;
    }

    std::string bullets(const std::vector<std::size_t>& chosen) const {
        std::string lines;
        for (const auto at : chosen) lines += bullet(sentences_[at]);
        return lines;
    }
};

}  // namespace

std::string summaryHeading(std::string_view transcript, const std::optional<std::string>& title) {
    return headingFor(readSentences(transcript), title);
}

std::string extractSummary(std::string_view transcript, const std::optional<std::string>& title) {
    const auto read = readSentences(transcript);
    auto text = "# Title: " + headingFor(read, title) + "\n\n## Summary\n";
    if (read.sentences.size() < kFewestSentences) {
        return text + "There is too little text for a summary: " + plural(read.sentences.size(), "sentence") + ".\n";
    }
    Extract extract(read);
    text += extract.summary();  // first: what it says is no key point again
    text += "\n\n## Key points\n" + extract.keyPoints();
    const auto actions = extract.actions();
    text += "\n## Possible action items\n" + (actions.empty() ? "No sentence sounds like one.\n" : actions);
    return text + "\n" + std::string(kExtractNotice) + "\n";
}

std::string condensedTranscript(std::string_view transcript, std::size_t mostBytes) {
    if (transcript.size() <= mostBytes) return std::string(transcript);
    const auto read = readSentences(transcript);
    return Extract(read).best(mostBytes);
}

}  // namespace tessivox::backend
