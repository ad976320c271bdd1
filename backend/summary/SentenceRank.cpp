#include "backend/summary/SentenceRank.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <map>
#include <unordered_map>

#include "backend/engines/Utf8.h"

namespace tessivox::backend {
namespace {

constexpr double kDamping = 0.85;
constexpr int kSteps = 30;

/// Words that say nothing about what is talked of. Sorted.
constexpr std::array<std::string_view, 144> kSmallWords = {
    "a",         "about", "actually", "after",  "again",  "all",     "also",  "am",      "an",     "and",   "any",
    "are",       "as",    "at",       "back",   "be",     "because", "been",  "before",  "being",  "but",   "by",
    "can",       "can't", "could",    "did",    "didn't", "do",      "does",  "doesn't", "doing",  "don't", "down",
    "even",      "for",   "from",     "get",    "go",     "going",   "gonna", "good",    "got",    "great", "had",
    "has",       "have",  "he",       "hello",  "her",    "here",    "hi",    "him",     "his",    "how",   "i",
    "i'd",       "i'll",  "i'm",      "i've",   "if",     "in",      "into",  "is",      "isn't",  "it",    "it's",
    "its",       "just",  "kind",     "know",   "let",    "let's",   "like",  "me",      "mean",   "more",  "much",
    "my",        "no",    "not",      "now",    "of",     "oh",      "ok",    "okay",    "on",     "one",   "or",
    "our",       "out",   "please",   "really", "right",  "say",     "see",   "she",     "should", "so",    "some",
    "something", "sure",  "thank",    "thanks", "that",   "that's",  "the",   "their",   "them",   "then",  "there",
    "there's",   "they",  "they're",  "thing",  "think",  "this",    "those", "to",      "too",    "uh",    "um",
    "up",        "us",    "very",     "want",   "was",    "we",      "we'll", "we're",   "we've",  "well",  "were",
    "what",      "when",  "where",    "which",  "who",    "will",    "with",  "would",   "yeah",   "yes",   "you",
    "your"};
static_assert(std::ranges::is_sorted(kSmallWords));

bool isSmall(std::string_view word) { return std::ranges::binary_search(kSmallWords, word); }

/// One form for singular, plural and possessive.
std::string stemOf(std::string word) {
    if (word.ends_with("'s")) word.resize(word.size() - 2);
    if (word.size() > 3 && word.ends_with('s') && !word.ends_with("ss")) word.pop_back();
    return word;
}

/// Han, kana and other scripts that write no blanks (Unicode blocks from CJK Radicals on, without Hangul), and Thai.
bool standsAlone(char32_t code) {
    return (code >= 0x2E80 && code < 0xAC00) || (code >= 0xF900 && code < 0xFE70) || code >= 0x20000 ||
           (code >= 0x0E00 && code < 0x0F00);
}

bool isPunctuation(char32_t code) {
    if (code < 0x80) return std::isalnum(static_cast<int>(code)) == 0 && code != '\'';
    return code < 0xC0 || (code >= 0x2000 && code < 0x2C00) || (code >= 0x3000 && code < 0x3040) || code >= 0xFF00;
}

}  // namespace

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    const auto finish = [&] {
        if (!word.empty()) words.push_back(std::exchange(word, {}));
    };
    while (!text.empty()) {
        const auto [code, size] = firstCharacter(text);
        text.remove_prefix(size);
        if (code == 0x2019) {
            word += word.empty() ? "" : "'";
        } else if (isPunctuation(code)) {
            finish();
        } else {
            if (standsAlone(code)) finish();
            appendCharacter(word, code < 0x80 ? static_cast<char32_t>(std::tolower(static_cast<int>(code))) : code);
            if (standsAlone(code)) finish();
        }
    }
    finish();
    return words;
}

SentenceRank::SentenceRank(const std::vector<std::string>& texts) : vectors_(texts.size()), scores_(texts.size(), 0) {
    makeVectors(texts);
    walk();
}

void SentenceRank::makeVectors(const std::vector<std::string>& texts) {
    std::unordered_map<std::string, std::uint32_t> numbers;
    std::vector<double> textsWith;
    for (std::size_t text = 0; text < texts.size(); ++text) {
        std::map<std::uint32_t, double> counts;
        for (auto& word : wordsOf(texts[text])) {
            if (isSmall(word)) continue;
            const auto [entry, isNew] = numbers.emplace(stemOf(std::move(word)), numbers.size());
            if (isNew) textsWith.push_back(0);
            counts[entry->second] += 1;
        }
        for (const auto& [word, count] : counts) {
            textsWith[word] += 1;
            vectors_[text].push_back({word, count});
        }
    }
    wordCount_ = numbers.size();
    const auto all = static_cast<double>(texts.size());
    for (auto& vector : vectors_) {
        double square = 0;
        for (auto& weight : vector) {
            weight.value *= std::log(1 + all / textsWith[weight.word]);
            square += weight.value * weight.value;
        }
        for (auto& weight : vector) weight.value /= std::sqrt(square);
    }
}

/// Each text's part of what all others hold: the product with the matrix of similarities, its diagonal left out.
std::vector<double> SentenceRank::spread(const std::vector<double>& from) const {
    std::vector<double> words(wordCount_, 0);
    for (std::size_t text = 0; text < vectors_.size(); ++text) {
        for (const auto& weight : vectors_[text]) words[weight.word] += weight.value * from[text];
    }
    std::vector<double> to(vectors_.size(), 0);
    for (std::size_t text = 0; text < vectors_.size(); ++text) {
        for (const auto& weight : vectors_[text]) to[text] += weight.value * words[weight.word];
        if (!vectors_[text].empty()) to[text] = std::max(0.0, to[text] - from[text]);
    }
    return to;
}

void SentenceRank::walk() {
    const auto count = vectors_.size();
    if (count == 0) return;
    const auto degrees = spread(std::vector<double>(count, 1.0));
    const auto start = 1.0 / static_cast<double>(count);
    std::vector<double> rank(count, start);
    for (int step = 0; step < kSteps; ++step) {
        std::vector<double> shares(count);
        for (std::size_t text = 0; text < count; ++text) {
            shares[text] = degrees[text] > 1e-9 ? rank[text] / degrees[text] : 0;
        }
        rank = spread(shares);
        for (auto& value : rank) value = (1 - kDamping) * start + kDamping * value;
    }
    const auto most = *std::ranges::max_element(rank);
    for (std::size_t text = 0; text < count; ++text) scores_[text] = rank[text] / most;
}

double SentenceRank::similarity(std::size_t one, std::size_t other) const {
    double sum = 0;
    auto b = vectors_[other].begin();
    for (const auto& weight : vectors_[one]) {
        while (b != vectors_[other].end() && b->word < weight.word) ++b;
        if (b != vectors_[other].end() && b->word == weight.word) sum += weight.value * b->value;
    }
    return sum;
}

}  // namespace tessivox::backend
