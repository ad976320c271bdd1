#include "transcription/ResultTexts.h"

#include <gtest/gtest.h>

#include "base/Characters.h"
#include "base/Text.h"

namespace tessivox::transcription {
namespace {

constexpr std::size_t kRoom = 223;

TEST(ResultTextsTest, FindsTheTitleInTheFirstLineThatHasOne) {
    EXPECT_EQ(extractTitle("## Meeting title: Budget Q3\n\ntext"), "Budget Q3");
    EXPECT_EQ(extractTitle("\n  \r\n## Summary\nText"), "Summary");
    EXPECT_EQ(extractTitle("abc\n- * # SUBJECT:\tPlan B \n"), "Plan B");
    EXPECT_EQ(extractTitle("Meeting: title: Two labels"), "title: Two labels");
    EXPECT_EQ(extractTitle("#x\n--\n***\n"), std::nullopt);
    EXPECT_EQ(extractTitle("\u4f1a\u8b70\u5ba4\n\u4f1a\u8b70\u5ba4B"), "\u4f1a\u8b70\u5ba4B");
    EXPECT_EQ(extractTitle(""), std::nullopt);
}

TEST(ResultTextsTest, FindsTheGistInTheSummarysFirstParagraph) {
    const std::string text = "# Notes\r\n  ## SUMMARY (short)\r\n\r\n \t\r\nWe **agreed**\r\non it.\r\n\r\nMore.";
    EXPECT_EQ(extractGist(text, 160), "We agreed on it.");
    EXPECT_EQ(extractGist("## Summary\n## Next\ntext", 160), std::nullopt);
    EXPECT_EQ(extractGist("## Summary\nOne\n# Next", 160), "One");
    EXPECT_EQ(extractGist("## Summary\n** **", 160), std::nullopt);
    EXPECT_EQ(extractGist("# Summary\ntext", 160), std::nullopt);
    EXPECT_EQ(extractGist("## Summary", 160), std::nullopt);
}

TEST(ResultTextsTest, CutsALongGistAtAWord) {
    std::string words;
    for (int word = 0; word < 40; ++word) words += "w\u00f6rd ";
    const auto gist = extractGist("## Summary\n" + words, 160).value();
    EXPECT_EQ(base::characterCount(gist), 155U);  // 31 words of four with 30 blanks, and the sign
    EXPECT_TRUE(gist.ends_with("w\u00f6rd\u2026")) << gist;
    EXPECT_EQ(extractGist("## Summary\nOne two \u2014 three four", 12), "One two\u2026");
    EXPECT_EQ(extractGist("## Summary\n" + std::string(161, 'x'), 160), std::string(159, 'x') + "\u2026");
    EXPECT_EQ(extractGist("## Summary\n" + std::string(160, 'x'), 160), std::string(160, 'x'));
}

TEST(ResultTextsTest, MakesSlugsThatEveryFileSystemTakes) {
    EXPECT_EQ(slug("Q3: Review / Plan?", kRoom), "Q3-Review-Plan");
    EXPECT_EQ(slug("._- a -- - b ._-", kRoom), "a-b");
    EXPECT_EQ(slug("/\\:*?\"<>|", kRoom), "");
    EXPECT_EQ(slug("..", kRoom), "");
    EXPECT_EQ(slug("a\u202Egpj\x1b[2J\u0085\x7f\u2066\u200F\nb", kRoom), "agpj[2Jb");
    EXPECT_EQ(slug("\u00dcbung \u4f1a\u8b70", kRoom), "\u00dcbung-\u4f1a\u8b70");
}

TEST(ResultTextsTest, CutsSlugsToFiftyCharactersAndTheRoomThereIs) {
    EXPECT_EQ(slug(std::string(60, 'x'), kRoom), std::string(50, 'x'));
    EXPECT_EQ(slug(std::string(49, 'x') + " yyyy", kRoom), std::string(49, 'x'));
    std::string families;
    for (int count = 0; count < 60; ++count) families += "\U0001F469\u200D\U0001F469\u200D\U0001F467";
    const auto cut = slug(families, kRoom);
    EXPECT_EQ(cut.size(), 12U * 18U);
    EXPECT_TRUE(base::isUTF8(cut));
}

}  // namespace
}  // namespace tessivox::transcription
