#include "program/SpokenDialogue.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <numeric>
#include <sstream>

namespace tessivox::testing {

const std::vector<SpokenDialogue::Turn> SpokenDialogue::kTurns{
    {"micfeed", "rms", "Good morning. I would like to talk about the budget for the next year."},
    {"speakers", "slt", "Yes, of course. We have more money for the new office than we thought."},
    {"micfeed", "rms", "That is very good news. How much can we spend on the kitchen?"},
    {"speakers", "slt", "I think that we can spend about ten thousand dollars on it."},
    {"micfeed", "rms", "Then please send me a list of all the things that we need before Friday."},
    {"speakers", "slt", "I will write the list tomorrow and send it to you in the afternoon."},
};

void SpokenDialogue::speak(SoundServer& server, const std::string& folder, std::size_t count) {
    const auto file = folder + "/turn.wav";
    for (std::size_t i = 0; i < count; ++i) {
        server.run({"flite", "-voice", kTurns[i].voice, "-t", kTurns[i].words, "-o", file});
        server.run({"paplay", "--device=" + kTurns[i].sink, file});
    }
}

Words SpokenDialogue::said(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += kTurns[i].words + " ";
    return wordsOf(text);
}

Words SpokenDialogue::wordsOf(const std::string& text) {
    std::string plain;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        plain += std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : ' ';
    }
    std::istringstream stream(plain);
    return {std::istream_iterator<std::string>(stream), {}};
}

TranscriptWords::TranscriptWords(const std::string& transcript) {
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);) {
        const auto speaker = line.find("] ");
        const auto text = line.find(": ");
        isWellFormed = isWellFormed && line.starts_with("[00:") && speaker < text && text != std::string::npos;
        if (!isWellFormed) return;
        speakers.push_back(line.substr(speaker + 2, text - speaker - 2));
        std::ranges::copy(SpokenDialogue::wordsOf(line.substr(text)), std::back_inserter(words));
    }
}

double wordErrorRate(const Words& said, const Words& heard) {
    std::vector<std::size_t> row(heard.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 1; i <= said.size(); ++i) {
        auto diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= heard.size(); ++j) {
            const auto replaced = diagonal + (said[i - 1] == heard[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return static_cast<double>(row.back()) / static_cast<double>(said.size());
}

}  // namespace tessivox::testing
