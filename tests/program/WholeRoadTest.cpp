#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "program/ProgramHome.h"

namespace tessivox::testing {
namespace {

using Words = std::vector<std::string>;

struct Turn {
    std::string sink;  ///< "micfeed" for who sits here, "speakers" for who is far away
    std::string voice;
    std::string words;
};

const std::vector<Turn> kDialogue{
    {"micfeed", "rms", "Good morning. I would like to talk about the budget for the next year."},
    {"speakers", "slt", "Yes, of course. We have more money for the new office than we thought."},
    {"micfeed", "rms", "That is very good news. How much can we spend on the kitchen?"},
    {"speakers", "slt", "I think that we can spend about ten thousand dollars on it."},
    {"micfeed", "rms", "Then please send me a list of all the things that we need before Friday."},
    {"speakers", "slt", "I will write the list tomorrow and send it to you in the afternoon."},
};

/// Lower-case words without punctuation.
Words wordsOf(const std::string& text) {
    std::string plain;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        plain += std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : ' ';
    }
    std::istringstream stream(plain);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// Least number of words to replace, drop or add (Levenshtein), over the number that were said.
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

/// The programs as a user has them: a sound server, a dialogue that is really spoken, no settings, no account.
class WholeRoadTest : public ProgramHome {
protected:
    WholeRoadTest() { soundServer = server.address(); }
    void speak(const Turn& turn) {
        const auto file = (home / "turn.wav").string();
        server.run({"flite", "-voice", turn.voice, "-t", turn.words, "-o", file});
        server.run({"paplay", "--device=" + turn.sink, file});
    }

    SoundServer server{SoundServerKind::pulseAudio};
};

TEST_F(WholeRoadTest, WhatTwoPeopleSayIsReadBesideTheirRecordingWithASummary) {
    auto program = start({"record", "--transcribe"});
    ASSERT_TRUE(reaches(5000)) << errors();
    for (const auto& turn : kDialogue) speak(turn);
    ::kill(program.pid(), SIGINT);
    const Path recording = program.readLine(120000);
    const auto rest = program.readAll();
    ASSERT_EQ(program.wait(), 0) << errors();
    ASSERT_TRUE(std::filesystem::exists(recording)) << rest << errors();

    const auto transcript = textOf(Path(recording).replace_extension("txt"));
    Words said, heard;
    std::set<std::string> speakers;
    for (const auto& turn : kDialogue) {
        const auto words = wordsOf(turn.words);
        said.insert(said.end(), words.begin(), words.end());
    }
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);) {
        ASSERT_EQ(line.find("[00:"), 0U) << line;
        const auto text = line.find(": ");
        ASSERT_NE(text, std::string::npos) << line;
        const auto speaker = line.find("] ") + 2;
        speakers.insert(line.substr(speaker, text - speaker));
        const auto words = wordsOf(line.substr(text));
        heard.insert(heard.end(), words.begin(), words.end());
    }
    RecordProperty("word_error_percent", static_cast<int>(wordErrorRate(said, heard) * 100));
    EXPECT_LE(wordErrorRate(said, heard), 0.15) << transcript;
    EXPECT_EQ(speakers, (std::set<std::string>{"Speaker A", "Speaker B"})) << transcript;

    auto summarize = start({"summarize", recording.string()});
    const Path summaryFile = summarize.readLine(60000);
    EXPECT_EQ(summarize.wait(), 0) << errors();
    const auto summary = textOf(summaryFile);
    EXPECT_NE(summary.find("## Summary"), std::string::npos) << summaryFile << summary;
    // The summary's title has renamed the recording.
    const auto renamed = Path(summaryFile).replace_extension().replace_extension("m4a");
    auto show = start({"show", renamed.string(), "--format", "srt"});
    EXPECT_NE(show.readAll().find("\n00:00:"), std::string::npos) << errors();
    EXPECT_EQ(show.wait(), 0) << errors();
}

}  // namespace
}  // namespace tessivox::testing
