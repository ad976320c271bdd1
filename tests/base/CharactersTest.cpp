#include "base/Characters.h"

#include <gtest/gtest.h>

namespace tessivox::base {
namespace {

const std::string kFamily = "\U0001F469\u200D\U0001F469\u200D\U0001F467";  // three people joined into one sign
const std::string kAccented = "e\u0301";

TEST(CharactersTest, CountsWhatAReaderTakesForOneCharacter) {
    EXPECT_EQ(characterCount(""), 0U);
    EXPECT_EQ(characterCount("Budget"), 6U);
    EXPECT_EQ(characterCount("B\u00fc\u4f1a"), 3U);
    EXPECT_EQ(characterCount(kFamily + kAccented + "\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 4U);
    EXPECT_EQ(characterCount("a\xff\xe4\xb8z"), 5U);
}

TEST(CharactersTest, CutsBetweenCharactersOnly) {
    const auto text = kFamily + kAccented + "z";
    EXPECT_EQ(firstCharacters(text, 0), "");
    EXPECT_EQ(firstCharacters(text, 1), kFamily);
    EXPECT_EQ(firstCharacters(text, 2), kFamily + kAccented);
    EXPECT_EQ(firstCharacters(text, 9), text);
    EXPECT_EQ(firstCharacters(text, 9, kFamily.size() + 2), kFamily);
    EXPECT_EQ(firstCharacters(text, 9, kFamily.size() - 1), "");
}

}  // namespace
}  // namespace tessivox::base
