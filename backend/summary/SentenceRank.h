#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessivox::backend {

/// Lower-case words (letters, digits, apostrophes); a character of a script without blanks counts as a word.
std::vector<std::string> wordsOf(std::string_view text);

/// How central each of a list of texts is among them all: TextRank (Mihalcea and Tarau 2004) with the cosine of tf-idf
/// vectors as similarity, as in LexRank (Erkan and Radev 2004). The walk goes through words rather than pairs of
/// sentences, which takes time in proportion to the words.
class SentenceRank {
public:
    explicit SentenceRank(const std::vector<std::string>& texts);

    /// 0 to 1, the most central being 1.
    double score(std::size_t text) const { return scores_[text]; }
    /// Cosine, 0 to 1.
    double similarity(std::size_t one, std::size_t other) const;

private:
    struct Weight {
        std::uint32_t word;
        double value;
    };
    std::vector<std::vector<Weight>> vectors_;  ///< of length 1, words ascending; empty for texts of small words only
    std::vector<double> scores_;
    std::size_t wordCount_ = 0;

    void makeVectors(const std::vector<std::string>& texts);
    void walk();
    std::vector<double> spread(const std::vector<double>& from) const;
};

}  // namespace tessivox::backend
