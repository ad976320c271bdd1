#include "reader/Captions.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tessivox::reader {
namespace {

using Times = std::vector<std::pair<double, double>>;

Times timesOf(const Transcript& transcript) {
    Times times;
    for (const auto& caption : captionsOf(transcript.entries())) times.emplace_back(caption.start, caption.end);
    return times;
}

TEST(CaptionsTest, LastUntilTheNextLaterOneAndTheLastAsLongAsItTakesToRead) {
    const auto last = std::string(30, 'x');
    EXPECT_EQ(timesOf(parseTranscript("[1] A: a\n[3] B: b\n[3] A: both\n[10] A: " + last)),
              (Times{{1, 3}, {3, 10}, {3, 10}, {10, 12}}));
    EXPECT_EQ(timesOf(parseTranscript("[5] A: short")), (Times{{5, 6.5}}));
    EXPECT_EQ(timesOf(parseTranscript("[7] A: late\n[2] B: early")), (Times{{2, 7}, {7, 8.5}}));
    EXPECT_EQ(timesOf(parseTranscript("[-5] A: before\n[1e300] B: after")),
              (Times{{0, 9999 * 3600.0}, {9999 * 3600.0, 9999 * 3600.0 + 1.5}}));
    EXPECT_TRUE(timesOf(parseTranscript("[1] A:  \n \n")).empty());
}

TEST(CaptionsTest, WhatHasNoTimeBelongsToWhatStandsBeforeIt) {
    const auto transcript = parseTranscript("first\n[5] A: one\ntwo\n\t\n[later] B: three\n[] four\n");
    const auto captions = captionsOf(transcript.entries());
    ASSERT_EQ(captions.size(), 3U);
    EXPECT_EQ(captions[0].start, 0);
    EXPECT_EQ(captions[1].lines, (std::vector<std::string_view>{"one", "two"}));
    EXPECT_EQ(captions[2].start, 5);
    EXPECT_EQ(captions[2].speaker, "B");
    EXPECT_EQ(captions[2].lines, (std::vector<std::string_view>{"three", "four"}));
}

TEST(CaptionsTest, EachFormatIsWrittenAsItsReadersWantIt) {
    const auto transcript = parseTranscript("[00:01.5] A<b>&: x --> <i>y</i> & {\\b1}z\nmore\n[01:00:00] Bye.\n");
    EXPECT_EQ(srtText(transcript.entries()),
              "1\n00:00:01,500 --> 01:00:00,000\n"
              "A<\u200Bb>&: x -\u200B-> <\u200Bi>y<\u200B/i> & {\u200B\\b1}z\nmore\n\n"
              "2\n01:00:00,000 --> 01:00:01,500\nBye.\n\n");
    EXPECT_EQ(vttText(transcript.entries()),
              "WEBVTT\n\n00:00:01.500 --> 01:00:00.000\n"
              "<v A&lt;b&gt;&amp;>x --&gt; &lt;i&gt;y&lt;/i&gt; &amp; {\\b1}z\nmore\n\n"
              "01:00:00.000 --> 01:00:01.500\nBye.\n\n");
    EXPECT_EQ(srtText({}), "");
    EXPECT_EQ(vttText({}), "WEBVTT\n\n");
}

}  // namespace
}  // namespace tessivox::reader
