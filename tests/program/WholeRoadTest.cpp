#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "program/ProgramHome.h"
#include "program/SpokenDialogue.h"

namespace tessivox::testing {
namespace {

/// The programs as a user has them: a sound server, a dialogue that is really spoken, no settings, no account.
class WholeRoadTest : public ProgramHome {
protected:
    WholeRoadTest() { soundServer = server.address(); }
    SoundServer server{SoundServerKind::pulseAudio};
};

TEST_F(WholeRoadTest, WhatTwoPeopleSayIsReadBesideTheirRecordingWithASummary) {
    auto program = start({"record", "--transcribe"});
    ASSERT_TRUE(reaches(5000)) << errors();
    SpokenDialogue::speak(server, home.string());
    ::kill(program.pid(), SIGINT);
    const Path recording = program.readLine(240000);
    const auto rest = program.readAll();
    ASSERT_EQ(program.wait(), 0) << errors();
    ASSERT_TRUE(std::filesystem::exists(recording)) << rest << errors();

    const auto transcript = textOf(Path(recording).replace_extension("txt"));
    const TranscriptWords heard(transcript);
    EXPECT_TRUE(heard.isWellFormed) << transcript;
    const auto errorRate = wordErrorRate(SpokenDialogue::said(), heard.words);
    RecordProperty("word_error_percent", static_cast<int>(errorRate * 100));
    EXPECT_LE(errorRate, 0.15) << transcript;
    const std::set<std::string> speakers(heard.speakers.begin(), heard.speakers.end());
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
