#include "reader/Documents.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace tessivox::reader {
namespace {

TEST(DocumentsTest, ATranscriptAsTextIsTidied) {
    EXPECT_EQ(transcriptPlain(parseTranscript("[1]A :hi\r\n\n[2] no speaker\nplain\n")),
              "[1] A: hi\n[2] no speaker\nplain\n");
}

TEST(DocumentsTest, MarkdownShowsEveryCharacterAsItWasSaid) {
    DocumentInfo info;
    info.title = "Q3 *net* #1";
    info.gist = "- we met";
    info.localDate = "2026-03-02 10:15";
    const auto transcript = parseTranscript(
        "[0:01] Dr. *X*: a_b <script> `x` [y](z) &amp; #1 - 2.\n[2] # one\n  # two\n- three\n12. four\n1) five\n12\n");
    EXPECT_EQ(transcriptMarkdown(transcript, info),
              "# Q3 \\*net\\* #1\n\n2026-03-02 10:15\n\n> \\- we met\n\n"
              "**Dr. \\*X\\*** (0:01) a\\_b \\<script\\> \\`x\\` \\[y\\](z) \\&amp; #1 - 2.\n\n"
              "(2) # one\n\n\\# two\n\n\\- three\n\n12\\. four\n\n1\\) five\n\n12\n\n");
}

TEST(DocumentsTest, ASummaryKeepsItsMarkdownAndItsLinesApart) {
    DocumentInfo info;
    info.title = "Budget";
    const std::string body = "## Summary\nWe **met**.\nWe left.\n* one\n- two\n\n### More\nDate: today\n";
    const std::string tidy = "## Summary\n\nWe **met**.\n\nWe left.\n\n- one\n- two\n\n### More\n\nDate: today\n";
    EXPECT_EQ(summaryMarkdown(parseBlocks(body), info), "# Budget\n\n" + tidy);
    EXPECT_EQ(summaryMarkdown(parseBlocks("# Title: Own\n" + body), info), "# Own\n\n" + tidy);
    EXPECT_EQ(summaryPlain("# Title: Own\n" + body),
              "Own\n\nSummary\nWe met.\nWe left.\n\u2022  one\n\u2022  two\n\nMore\nDate: today\n");
    EXPECT_EQ(summaryMarkdown(parseBlocks(""), {}), "");
}

TEST(DocumentsTest, JSONHoldsWhatIsKnownAndNullForTheRest) {
    DocumentInfo info;
    info.path = "/caf\xE9.txt";
    const auto transcript = nlohmann::json::parse(transcriptJSON(parseTranscript("[1:00] A: \"hi\"\nplain\n"), info));
    EXPECT_EQ(transcript.at("path"), "/caf\uFFFD.txt");
    EXPECT_TRUE(transcript.at("title").is_null());
    EXPECT_EQ(transcript.at("segments"),
              nlohmann::json::parse(R"([{"time": "1:00", "start": 60, "speaker": "A", "text": "\"hi\""},
                                        {"time": "", "start": 0, "speaker": "", "text": "plain"}])"));
    const auto summary = nlohmann::json::parse(summaryJSON(parseBlocks("## S\n- **x**\n"), info));
    EXPECT_EQ(summary.at("blocks"),
              nlohmann::json::parse(R"([{"kind": "h2", "text": "S"}, {"kind": "bullet", "text": "**x**"}])"));
    EXPECT_EQ(nlohmann::json::parse(transcriptJSON({}, info)).at("segments"), nlohmann::json::array());
}

}  // namespace
}  // namespace tessivox::reader
