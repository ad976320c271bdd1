#pragma once

#include <string>
#include <vector>

#include "support/SoundServer.h"

namespace tessivox::testing {

using Words = std::vector<std::string>;

/// A conversation of two, spoken into a sound server; what became of it can be compared with what was said.
struct SpokenDialogue {
    struct Turn {
        std::string sink;  ///< "micfeed" for who sits here, "speakers" for who is far away
        std::string voice;
        std::string words;
    };
    static const std::vector<Turn> kTurns;

    /// Says the first `count` turns, one after the other.
    static void speak(SoundServer& server, const std::string& folder, std::size_t count = kTurns.size());
    /// What these turns say, as lower-case words without punctuation.
    static Words said(std::size_t count = kTurns.size());
    static Words wordsOf(const std::string& text);
};

/// The lines of a transcript, taken apart: "[mm:ss] Speaker A: text".
struct TranscriptWords {
    explicit TranscriptWords(const std::string& transcript);
    std::vector<std::string> speakers;  ///< of each line
    Words words;
    bool isWellFormed = true;
};

/// Least number of words to replace, drop or add (Levenshtein), over the number that were said.
double wordErrorRate(const Words& said, const Words& heard);

}  // namespace tessivox::testing
