#include "audio/AudioRing.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <vector>

namespace tessivox::audio {
namespace {

std::vector<float> ramp(int first, std::size_t count) {
    std::vector<float> samples(count);
    for (auto& sample : samples) sample = static_cast<float>(first++);
    return samples;
}

TEST(AudioRingTest, GivesBackWhatWentInWhateverTheOrderOfPushesAndPops) {
    std::mt19937 random(11);
    AudioRing<int> ring(100, 16);
    std::deque<std::vector<float>> model;
    int next = 0;
    std::size_t refused = 0;
    for (int step = 0; step < 100000; ++step) {
        // Phases in which the consumer keeps up, and ones in which it falls behind.
        const bool isPush = std::bernoulli_distribution(step / 500 % 2 ? 0.4 : 0.6)(random);
        if (isPush) {
            auto samples = ramp(next, std::uniform_int_distribution<std::size_t>(0, 40)(random));
            const bool fits = ring.push(next, samples);
            ASSERT_TRUE(fits || !model.empty()) << "an empty ring takes anything";
            if (fits) {
                model.push_back(std::move(samples));
                next += 1000;
            } else {
                ++refused;
            }
        } else if (const auto* record = ring.front()) {
            ASSERT_FALSE(model.empty());
            ASSERT_EQ(std::vector<float>(record->samples.begin(), record->samples.end()), model.front());
            ring.pop();
            model.pop_front();
        } else {
            ASSERT_TRUE(model.empty());
        }
    }
    EXPECT_GT(refused, 100U);
}

TEST(AudioRingTest, HoldsItsWholeRoomAfterAnyPlaceItWasEmptiedAt) {
    for (std::size_t offset = 0; offset < 10; ++offset) {
        AudioRing<int> ring(10, 16);
        ASSERT_TRUE(ring.push(0, ramp(0, offset)));
        ring.pop();
        for (int piece = 0; piece < 5; ++piece) EXPECT_TRUE(ring.push(piece, ramp(piece, 2))) << offset;
        EXPECT_FALSE(ring.push(5, ramp(5, 1)));
        ring.pop();
        EXPECT_TRUE(ring.push(5, ramp(5, 2)));
    }
}

}  // namespace
}  // namespace tessivox::audio
