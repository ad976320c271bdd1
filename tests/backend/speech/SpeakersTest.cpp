#include "backend/speech/Speakers.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "SpokenDialogue.h"

namespace tessivox::backend {
namespace {

using testing::Samples;
using testing::SpokenDialogue;

struct Told {
    std::size_t speakers = 0;
    double right = 0;
};

Told tell(const SpokenDialogue& dialogue, const Samples& samples) {
    Told told;
    const auto turns = tellSpeakersApart(samples, detectSpeech(samples));
    for (const SpeakerTurn& turn : turns) told.speakers = std::max(told.speakers, turn.speaker + 1);
    told.right = testing::rightlyAttributed(dialogue, turns);
    return told;
}

TEST(SpeakersTest, TellsTwoVoicesApart) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt"});
    const Told told = tell(dialogue, testing::throughUploadCopy(dialogue.samples));
    EXPECT_EQ(told.speakers, 2u);
    EXPECT_GE(told.right, 0.97);
}

TEST(SpeakersTest, TellsThreeVoicesApart) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt", "awb"});
    const Told told = tell(dialogue, testing::throughUploadCopy(dialogue.samples));
    EXPECT_EQ(told.speakers, 3u);
    EXPECT_GE(told.right, 0.97);
}

TEST(SpeakersTest, TellsVoicesApartUnderSteadyNoise) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt"});
    const std::size_t length = dialogue.samples.size();
    for (const Samples& noise : {testing::whiteNoise(length, 1000), testing::brownNoise(length, 1000)}) {
        const Samples noisy = testing::withNoise(dialogue.samples, noise, 15);
        const Told told = tell(dialogue, testing::throughUploadCopy(noisy));
        EXPECT_EQ(told.speakers, 2u);
        EXPECT_GE(told.right, 0.95);
    }
}

TEST(SpeakersTest, HearsAnotherVoiceTakeOverWithoutAPause) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt"}, 0.1);
    const Told told = tell(dialogue, testing::throughUploadCopy(dialogue.samples));
    EXPECT_EQ(told.speakers, 2u);
    EXPECT_GE(told.right, 0.95);
}

TEST(SpeakersTest, TakesOneVoiceForOneSpeaker) {
    const auto monologue = SpokenDialogue::meeting({"slt"});
    EXPECT_EQ(tell(monologue, testing::throughUploadCopy(monologue.samples)).speakers, 1u);
}

TEST(SpeakersTest, FindsNoMoreSpeakersInALongMeeting) {
    const auto dialogue = SpokenDialogue::meeting({"rms", "slt"}).repeatedTo(12 * 60);
    const Told told = tell(dialogue, dialogue.samples);
    EXPECT_EQ(told.speakers, 2u);
    EXPECT_GE(told.right, 0.95);
}

TEST(SpeakersTest, NumbersSpeakersByTheirFirstWords) {
    const auto dialogue = SpokenDialogue::meeting({"slt", "rms"});
    const auto turns = tellSpeakersApart(dialogue.samples, detectSpeech(dialogue.samples));
    ASSERT_GE(turns.size(), 2u);
    EXPECT_EQ(turns[0].speaker, 0u);
    EXPECT_EQ(turns[1].speaker, 1u);
    EXPECT_TRUE(tellSpeakersApart(dialogue.samples, {}).empty());
}

}  // namespace
}  // namespace tessivox::backend
