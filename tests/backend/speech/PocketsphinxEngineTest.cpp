#include "backend/speech/PocketsphinxEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "SpokenDialogue.h"
#include "backend/speech/TranscriptText.h"
#include "base/Error.h"

namespace tessivox::backend {
namespace {

using testing::Samples;
using testing::SpokenDialogue;

std::string textOf(const std::vector<Utterance>& utterances) {
    std::string text;
    for (const Utterance& utterance : utterances) text += utterance.text + " ";
    return text;
}

TEST(PocketsphinxEngineTest, WritesDownADialogueWithItsSpeakersInSilence) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt"});
    const Samples samples = testing::throughUploadCopy(dialogue.samples);
    std::vector<double> fractions;
    ::testing::internal::CaptureStderr();
    const auto begin = std::clock();
    const auto utterances =
        PocketsphinxEngine().transcribe({samples}, [&](double fraction) { fractions.push_back(fraction); });
    const double seconds = double(std::clock() - begin) / CLOCKS_PER_SEC;
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

    const double errors = testing::wordErrorRate(dialogue.text(), textOf(utterances));
    RecordProperty("word_error_rate", std::to_string(errors));
    RecordProperty("real_time_factor", std::to_string(seconds / Sound{samples}.seconds()));
    EXPECT_LE(errors, 0.15) << textOf(utterances);
    ASSERT_EQ(utterances.size(), dialogue.turns.size());
    for (std::size_t i = 0; i < utterances.size(); ++i) {
        EXPECT_EQ(utterances[i].speaker, i % 2 == 0 ? "Speaker A" : "Speaker B");
        EXPECT_NEAR(utterances[i].start, double(dialogue.turns[i].begin) / 16000, 0.3);
        EXPECT_NEAR(utterances[i].end, double(dialogue.turns[i].end) / 16000, 0.3);
    }
    EXPECT_TRUE(std::ranges::is_sorted(fractions));
    EXPECT_DOUBLE_EQ(fractions.back(), 1);
    EXPECT_TRUE(transcriptText(utterances).starts_with("[00:00] Speaker A: Good morning"));
}

TEST(PocketsphinxEngineTest, HearsNothingInSilence) {
    EXPECT_TRUE(PocketsphinxEngine().transcribe({Samples(16000 * 20)}, [](double) {}).empty());
}

TEST(PocketsphinxEngineTest, NamesThePackageOfAMissingModel) {
    try {
        PocketsphinxEngine engine("/nowhere");
        FAIL();
    } catch (const base::Error& error) {
        EXPECT_NE(error.description().find("pocketsphinx-en-us"), std::string::npos);
    }
}

}  // namespace
}  // namespace tessivox::backend
