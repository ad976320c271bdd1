#include "reader/ReaderParsing.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tessivox::reader {

void PrintTo(const Segment& segment, std::ostream* out) {
    *out << "{" << segment.time << "|" << segment.start << "|" << segment.speaker << "|" << segment.text << "}";
}
void PrintTo(const Block& block, std::ostream* out) {
    *out << "{" << static_cast<int>(block.kind) << "|" << block.text << "}";
}

namespace {

using Kind = Block::Kind;

TEST(TranscriptParsingTest, CutsEachLineByItsFirstBracketsAndColon) {
    const std::string name24 = "abcdefghijklmnopqrstuvwx";
    const std::string name25 = name24 + "y: hi";
    const std::string sentence = "This is a rather long opening sentence: it goes on";
    const std::vector<std::pair<std::string, Segment>> cases{
        {"[00:01:02] Speaker A: Good morning.", {"00:01:02", 62, "Speaker A", "Good morning."}},
        {"[00:10] Hello there", {"00:10", 10, "", "Hello there"}},
        {"[00:10] Note: the budget is approved", {"00:10", 10, "Note", "the budget is approved"}},
        {"[00:10] " + sentence, {"00:10", 10, "", sentence}},
        {"[00:10] : hello", {"00:10", 10, "", "hello"}},
        {"[] hi", {"", 0, "", "hi"}},
        {"[abc] Bob: hi", {"abc", 0, "Bob", "hi"}},
        {"plain line without a bracket: so", {"", 0, "", "plain line without a bracket: so"}},
        {"   ", {"", 0, "", "   "}},
        {" [00:10] Bob: hi", {"", 0, "", " [00:10] Bob: hi"}},
        {"[00:10 Bob: hi", {"", 0, "", "[00:10 Bob: hi"}},
        {"[", {"", 0, "", "["}},
        {"[00:10]", {"00:10", 10, "", ""}},
        {"[00:10]\t Bob \t:\t12:30 [sharp] \t", {"00:10", 10, "Bob", "12:30 [sharp]"}},
        {"[[1]] Bob: hi", {"[1", 0, "] Bob", "hi"}},
        {"[1]" + name24 + ": hi", {"1", 1, name24, "hi"}},
        {"[1]" + name25, {"1", 1, "", name25}},
    };
    for (const auto& [line, expected] : cases) {
        const auto transcript = parseTranscript(line);
        ASSERT_EQ(transcript.size(), 1U) << line;
        EXPECT_EQ(transcript[0], expected) << line;
    }
}

TEST(TranscriptParsingTest, ANameMayHave24CharactersWhateverTheirBytes) {
    std::string umlauts, accents, flags;
    for (int count = 0; count < 24; ++count) {
        umlauts += "\u00E4";
        accents += "e\u0301";
        flags += "\U0001F1E9\U0001F1EA";
    }
    for (const auto& name : {umlauts, accents, flags}) {
        const auto transcript = parseTranscript("[1] " + name + ": hi\n[1] " + name + "e: hi");
        EXPECT_EQ(transcript[0].speaker, name);
        EXPECT_EQ(transcript[1].speaker, "");
    }
}

TEST(TranscriptParsingTest, FilesOfOtherSystemsReadLikeOurOwn) {
    const auto transcript = parseTranscript("\xEF\xBB\xBF[1] A: one\r\n\r\n\n[2] B\xFF: t\xE4o\r\n \r\nlast\r");
    ASSERT_EQ(transcript.size(), 4U);
    EXPECT_EQ(transcript[0], (Segment{"1", 1, "A", "one"}));
    EXPECT_EQ(transcript[1], (Segment{"2", 2, "B\uFFFD", "t\uFFFDo"}));
    EXPECT_EQ(transcript[2].text, " ");
    EXPECT_EQ(transcript[3].text, "last");
    for (const auto* nothing : {"", "\n", "\n\n\n", "\r\n", "\xEF\xBB\xBF"}) {
        EXPECT_TRUE(parseTranscript(nothing).empty());
        EXPECT_TRUE(parseBlocks(nothing).empty());
    }
    const auto odd = parseTranscript(std::string("[1] A: a\0b", 10));
    EXPECT_EQ(odd[0].text.size(), 3U);
}

TEST(TranscriptParsingTest, ViewsLiveAsLongAsAnyCopyOfTheResult) {
    std::optional<Transcript> first = parseTranscript("[1] A: x");  // short enough to stand within a string itself
    auto moved = std::move(*first);
    const auto copy = moved;
    first.reset();
    moved = {};
    EXPECT_EQ(copy[0], (Segment{"1", 1, "A", "x"}));
}

TEST(TranscriptParsingTest, ReadsTimesOfAnyShape) {
    const std::vector<std::pair<std::string, double>> cases{{"01:02:03", 3723},
                                                            {"12:34", 754},
                                                            {"90", 90},
                                                            {"1:30.5", 90.5},
                                                            {"", 0},
                                                            {":", 0},
                                                            {"a:b", 0},
                                                            {"1:x:30", 90},
                                                            {"1::30", 90},
                                                            {":30:", 30},
                                                            {"-5", -5},
                                                            {"1 :30", 30},
                                                            {"nan:7", 7},
                                                            {"inf:7", 7},
                                                            {"1e999", 0},
                                                            {"1e308:1", 0},
                                                            {"0x10:2", 2},
                                                            {"1e2", 100},
                                                            {"1234567890", 1234567890},
                                                            {"00000000000000000000012", 12}};
    for (const auto& [text, seconds] : cases) EXPECT_EQ(parseTime(text), seconds) << text;
}

TEST(SpeakerColorsTest, AreGivenByFirstAppearanceAndComeRound) {
    std::string text = "[0] no speaker\n";
    for (const char* name : {"G", "b", "c", "b", "d", "e", "f", "B"}) text += "[1] " + std::string(name) + ": x\n";
    const auto transcript = parseTranscript(text);
    const auto colors = speakerColors(transcript.entries());
    ASSERT_EQ(colors.size(), 7U);
    EXPECT_EQ(colors.at("G"), speakerPalette[0]);
    EXPECT_EQ(colors.at("c"), speakerPalette[2]);
    EXPECT_EQ(colors.at("f"), speakerPalette[5]);
    EXPECT_EQ(colors.at("B"), speakerPalette[0]);
    EXPECT_EQ(colors.at("G").resolved(true), (ChannelColor{10 / 255.0, 132 / 255.0, 1}));
    EXPECT_EQ(colors.at("G").resolved(false), (ChannelColor{0, 122 / 255.0, 1}));
}

TEST(SummaryParsingTest, TellsEachKindOfLineByItsBeginning) {
    const std::vector<std::pair<std::string, Block>> cases{
        {"### Three", {Kind::h3, "Three"}},
        {"## Two: title: x", {Kind::h2, "Two: title: x"}},
        {"# Meeting Title: Budget", {Kind::h1, "Budget"}},
        {"# Budget", {Kind::h1, "Budget"}},
        {"# subTITLE:\tA Title: B", {Kind::h1, "A Title: B"}},
        {"# Title:", {Kind::h1, ""}},
        {"#  two blanks", {Kind::h1, " two blanks"}},
        {"* star", {Kind::bullet, "star"}},
        {"\t - dash \t", {Kind::bullet, "dash"}},
        {"DATE: 3 March", {Kind::meta, "DATE: 3 March"}},
        {"Dated: 3 March", {Kind::paragraph, "Dated: 3 March"}},
        {"date", {Kind::paragraph, "date"}},
        {"#### Deep", {Kind::paragraph, "#### Deep"}},
        {"#Heading", {Kind::paragraph, "#Heading"}},
        {"# ", {Kind::paragraph, "#"}},
        {"-", {Kind::paragraph, "-"}},
        {"1. First", {Kind::paragraph, "1. First"}},
        {"**Bold** start", {Kind::paragraph, "**Bold** start"}},
    };
    std::string all;
    for (const auto& [line, expected] : cases) all += line + "\r\n \t\r\n";
    const auto summary = parseBlocks(all);
    ASSERT_EQ(summary.size(), cases.size());
    for (std::size_t index = 0; index < cases.size(); ++index)
        EXPECT_EQ(summary[index], cases[index].second) << cases[index].first;
}

TEST(SummaryParsingTest, ShowsEachBlockInTheStyleOfItsKind) {
    const auto shown = summaryAttributedString(
        "# **One**\n## Two\n### Three\n- It **is** ***so***\n**Bold** start\ndate: **today**\n");
    const std::vector<StyledParagraph> expected{
        {"One\n", 18, FontWeight::bold, ColorRole::label, 8, 0, 0, 1.25},
        {"Two\n", 16, FontWeight::semibold, ColorRole::label, 4, 8, 0, 1.25},
        {"Three\n", 14, FontWeight::semibold, ColorRole::secondaryLabel, 3, 6, 0, 1.25},
        {"\u2022  It is *so*\n", 15, FontWeight::regular, ColorRole::label, 3, 0, 18, 1.25},
        {"Bold start\n", 15, FontWeight::regular, ColorRole::label, 6, 0, 0, 1.25},
        {"date: **today**\n", 12, FontWeight::regular, ColorRole::tertiaryLabel, 6, 0, 0, 1.25},
    };
    EXPECT_EQ(shown, expected);
}

}  // namespace
}  // namespace tessivox::reader
