#include "backend/speech/SentenceCase.h"

#include <gtest/gtest.h>

namespace tessivox::backend {
namespace {

TEST(SentenceCaseTest, WritesWordsAsASentence) {
    EXPECT_EQ(sentenceCase("well i think i'm in a hurry and so am i"), "Well I think I'm in a hurry and so am I.");
    EXPECT_EQ(sentenceCase("i"), "I.");
    EXPECT_EQ(sentenceCase(" "), "");
}

}  // namespace
}  // namespace tessivox::backend
