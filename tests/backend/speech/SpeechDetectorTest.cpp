#include "backend/speech/SpeechDetector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "SpokenDialogue.h"

namespace tessivox::backend {
namespace {

using testing::Samples;
using testing::SpokenDialogue;

constexpr std::size_t kSecond = 16000;

const SpokenDialogue& dialogue() {
    static const SpokenDialogue dialogue = SpokenDialogue::meeting({"rms", "slt"});
    return dialogue;
}

Samples hum(std::size_t length) {
    Samples samples(length);
    for (std::size_t i = 0; i < length; ++i) {
        double value = 0;
        for (int harmonic = 1; harmonic < 12; ++harmonic)
            value += 3000.0 / harmonic * std::sin(2 * std::numbers::pi * 50 * harmonic * double(i) / kSecond);
        samples[i] = static_cast<std::int16_t>(value);
    }
    return samples;
}

TEST(SpeechDetectorTest, FindsEachTurnOfADialogueAndNothingElse) {
    const auto segments = detectSpeech(testing::throughUploadCopy(dialogue().samples));
    EXPECT_EQ(segments.size(), dialogue().turns.size());
    EXPECT_GE(testing::found(dialogue(), segments), 0.99);
    EXPECT_EQ(testing::foundInVain(dialogue(), segments), 0);
}

TEST(SpeechDetectorTest, HoldsUpUnderSteadyNoise) {
    const std::size_t length = dialogue().samples.size();
    for (const Samples& noise : {testing::whiteNoise(length, 1000), testing::brownNoise(length, 1000)})
        for (const double decibels : {15, 5}) {
            const Samples noisy = testing::withNoise(dialogue().samples, noise, decibels);
            const auto segments = detectSpeech(testing::throughUploadCopy(noisy));
            EXPECT_GE(testing::found(dialogue(), segments), 0.98) << decibels;
            EXPECT_LE(testing::foundInVain(dialogue(), segments), 0.5) << decibels;
        }
}

TEST(SpeechDetectorTest, HearsFaintVoices) {
    SpokenDialogue faint = dialogue();
    for (std::int16_t& sample : faint.samples) sample /= 50;
    EXPECT_GE(testing::found(dialogue(), detectSpeech(faint.samples)), 0.98);
}

TEST(SpeechDetectorTest, HearsNobodyInSilenceHumAndNoise) {
    constexpr std::size_t kLength = 60 * kSecond;
    EXPECT_TRUE(detectSpeech({}).empty());
    EXPECT_TRUE(detectSpeech(Samples(100, 1000)).empty());
    EXPECT_TRUE(detectSpeech(Samples(kLength)).empty());
    EXPECT_TRUE(detectSpeech(hum(kLength)).empty());
    for (const double amplitude : {1, 100, 8000}) {
        EXPECT_TRUE(detectSpeech(testing::whiteNoise(kLength, amplitude)).empty()) << amplitude;
        EXPECT_TRUE(detectSpeech(testing::throughUploadCopy(testing::brownNoise(kLength, amplitude))).empty())
            << amplitude;
    }
}

TEST(SpeechDetectorTest, TakesAFanThatIsSwitchedOnAndOffForNoise) {
    Samples samples = testing::whiteNoise(20 * kSecond, 20);
    const Samples fan = testing::whiteNoise(30 * kSecond, 2000), calm = samples;
    samples.insert(samples.end(), fan.begin(), fan.end());
    samples.insert(samples.end(), calm.begin(), calm.end());
    EXPECT_TRUE(detectSpeech(samples).empty());
}

TEST(SpeechDetectorTest, PartsLongSpeechWhereItIsQuietest) {
    // Four syllables a second for 40 s, without any pause but a break of 120 ms at 17 s.
    Samples samples = testing::whiteNoise(45 * kSecond, 2000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double second = double(i) / kSecond;
        const bool silent = second < 2 || second > 42 || (second > 16.94 && second < 17.06);
        const double syllable = 0.05 + std::abs(std::sin(2 * std::numbers::pi * 2 * second));
        samples[i] = static_cast<std::int16_t>(silent ? 0 : samples[i] * syllable);
    }
    const auto segments = detectSpeech(samples);
    ASSERT_GE(segments.size(), 2u);
    for (const SpeechSegment& segment : segments) EXPECT_LE(segment.length(), 25 * kSecond + 400);
    EXPECT_EQ(segments[0].end, segments[1].begin);
    EXPECT_NEAR(double(segments[0].end) / kSecond, 17, 0.05);
    EXPECT_NEAR(double(segments.back().end) / kSecond, 42.16, 0.1);
}

}  // namespace
}  // namespace tessivox::backend
