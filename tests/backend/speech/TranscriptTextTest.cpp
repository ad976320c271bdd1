#include "backend/speech/TranscriptText.h"

#include <gtest/gtest.h>

namespace tessivox::backend {
namespace {

TEST(TranscriptTextTest, JoinsWhatOneSpeakerSaysUpToHalfAMinute) {
    const std::vector<Utterance> utterances = {
        {0.9, 8, "Good morning.", "Speaker A"},   {9, 20, "Let us begin.", "Speaker A"},
        {21, 31.1, "This is late.", "Speaker A"}, {31.5, 32, "I agree.", "Speaker B"},
        {32.5, 33, "Good.", "Speaker A"},         {59.9, 60.5, "Next point.", "Speaker A"},
    };
    EXPECT_EQ(transcriptText(utterances),
              "[00:00] Speaker A: Good morning. Let us begin.\n"
              "[00:21] Speaker A: This is late.\n"
              "[00:31] Speaker B: I agree.\n"
              "[00:32] Speaker A: Good. Next point.\n");
}

TEST(TranscriptTextTest, ShowsHoursFromTheFirstHourOn) {
    EXPECT_EQ(transcriptText({{3599.9, 3601, "a", "A"}, {3600, 3602, "b", "B"}, {36000 + 61, 36062, "c", "C"}}),
              "[59:59] A: a\n[01:00:00] B: b\n[10:01:01] C: c\n");
    EXPECT_EQ(transcriptText({{-3, 1, "a", "A"}, {0.0 / 0.0, 1, "b", "B"}}), "[00:00] A: a\n[00:00] B: b\n");
}

TEST(TranscriptTextTest, KeepsEachEntryToItsLine) {
    EXPECT_EQ(transcriptText({{1, 2, " one\n\n[00:09] two\r\tthree ", "Speaker\nA"}, {2, 3, " \n ", "B"}}),
              "[00:01] Speaker A: one [00:09] two three\n");
    EXPECT_EQ(transcriptText({{1, 2, "\n", ""}}), "");
    EXPECT_EQ(transcriptText({}), "");
}

TEST(TranscriptTextTest, LetsNoReaderTakeWordsForASpeaker) {
    EXPECT_EQ(transcriptText({{1, 2, "No colon here", ""}}), "[00:01] No colon here\n");
    EXPECT_EQ(transcriptText({{1, 2, "Note: the budget", ""}}), "[00:01] : Note: the budget\n");
    EXPECT_EQ(transcriptText({{1, 2, "one", ""}, {2, 3, "two", ""}}), "[00:01] one\n[00:02] two\n");
}

TEST(TranscriptTextTest, MakesANameThatReadersRecognise) {
    EXPECT_EQ(transcriptText({{1, 2, "hello", "Dr: Who"}}), "[00:01] Dr Who: hello\n");
    EXPECT_EQ(transcriptText({{1, 2, "hi", "Jürgen von und zu Hohenstein-Waldburg"}}),
              "[00:01] Jürgen von und zu Hohens: hi\n");
    EXPECT_EQ(transcriptText({{1, 2, "at 10:30", " : "}}), "[00:01] : at 10:30\n");
}

}  // namespace
}  // namespace tessivox::backend
