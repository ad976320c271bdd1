#include "audio/TimedCapture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "audio/OriginEstimator.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;
using base::Duration;
using base::HostTime;

constexpr HostTime kStart{1000s};

/// A device of 48 kHz mono on a clock of its own, a server that tells its timing with an error, and the capture over
/// both.
struct Device : CaptureSink {
    TimedCapture capture{AudioFormat{48000, 1}, *this};
    double rate = 48000;         // true frames per host second
    HostTime truth = kStart;     // true host time of frame 0, as of the last stall
    std::uint64_t produced = 0;  // frames so far
    HostTime now = kStart;
    std::vector<std::pair<HostTime, std::size_t>> heard;  // time and frames of what came out

    void onAudio(const AudioBuffer& buffer, HostTime time) override { heard.emplace_back(time, buffer.frames()); }
    void onEnded(const std::string&) override {}

    HostTime trueTime(std::uint64_t frame) const {
        return truth + base::fromSeconds(static_cast<double>(frame) / rate);
    }
    /// One fragment, delivered as its last frame is heard.
    void fragment(std::size_t frames = 960) {
        const std::vector<float> samples(frames);
        produced += frames;
        now = trueTime(produced);
        capture.addAudio(samples, now);
        poll();
    }
    void poll() {
        if (capture.wantsTimingReply(now)) capture.addTimingReply(now, truth);
        capture.releaseOverdue(now);
    }
    void stall(Duration span) {
        for (const auto end = now + span; now < end; now += 10ms) poll();
        truth = now - base::fromSeconds(static_cast<double>(produced) / rate);
    }
};

/// How late a reply of a busy machine is: mostly a little, now and then a whole block of the server's.
struct Lateness {
    std::mt19937 random{3};
    std::normal_distribution<double> jitter{0, 0.1e-3};
    std::bernoulli_distribution isHeldUp{0.3};
    std::uniform_real_distribution<double> heldUp{0, 12e-3};
    Duration next() { return base::fromSeconds(jitter(random) + (isHeldUp(random) ? heldUp(random) : 0)); }
};

TEST(OriginEstimatorTest, KeepsItsWordThroughLateRepliesAndFollowsDriftInSteps) {
    OriginEstimator estimator;
    Lateness lateness;
    int steps = 0;
    double worst = 0;
    std::optional<HostTime> last;
    for (int poll = 0; poll < 6000; ++poll) {  // ten minutes at 200 ppm
        const auto truth = kStart + base::fromSeconds(poll * 0.1 * 200e-6);
        estimator.add(truth + lateness.next());
        if (!estimator.isSettled()) continue;
        if (last && *last != *estimator.origin()) ++steps;
        last = estimator.origin();
        worst = std::max(worst, std::abs(base::toSeconds(*estimator.origin() - truth)));
    }
    EXPECT_LT(worst, 1.5e-3);
    EXPECT_GT(steps, 100);  // 120 ms of drift
    EXPECT_LT(steps, 400);
}

TEST(OriginEstimatorTest, ADoubtIsSettledByTheNextReply) {
    OriginEstimator estimator;
    for (int poll = 0; poll < 21; ++poll) estimator.add(kStart);
    estimator.doubt();
    EXPECT_FALSE(estimator.origin()) << "it must not be used before it is confirmed";
    estimator.add(kStart + 2ms);
    EXPECT_TRUE(estimator.isSettled());
    EXPECT_EQ(estimator.origin(), kStart);
    estimator.doubt();
    estimator.add(kStart + 5s);
    EXPECT_FALSE(estimator.isSettled());
    EXPECT_EQ(estimator.origin(), kStart + 5s);
}

TEST(OriginEstimatorTest, OneFarReplyIsIgnoredAndTwoMoveTheOrigin) {
    OriginEstimator estimator;
    for (int poll = 0; poll < 21; ++poll) estimator.add(kStart);
    estimator.add(kStart + 5s);
    EXPECT_EQ(estimator.origin(), kStart);
    EXPECT_FALSE(estimator.isSettled());
    estimator.add(kStart + 5s);
    EXPECT_EQ(estimator.origin(), kStart + 5s);
}

TEST(OriginEstimatorTest, NearRepliesMoveTheOriginOnlyWhenTheyAgree) {
    OriginEstimator estimator;
    for (int poll = 0; poll < 21; ++poll) estimator.add(kStart);
    for (const auto late : {9ms, 12ms, 6ms, 10ms, 7ms, 11ms}) estimator.add(kStart + late);
    EXPECT_EQ(estimator.origin(), kStart);
    EXPECT_FALSE(estimator.isSettled());
    estimator.add(kStart);
    EXPECT_TRUE(estimator.isSettled());
    for (int poll = 0; poll < 5; ++poll) {
        EXPECT_EQ(estimator.origin(), kStart);
        estimator.add(kStart + 5300us + poll * 100us);
    }
    EXPECT_GT(estimator.origin(), kStart + 5200us);
    EXPECT_LT(estimator.origin(), kStart + 5800us);
}

TEST(OriginEstimatorTest, TimesOfFramesAreExactAfterYears) {
    const std::uint64_t frame = 48000ULL * 86400 * 365 + 1;
    EXPECT_EQ(OriginEstimator::timeOf(kStart, frame, 48000) - kStart, std::chrono::seconds(86400 * 365) + 20834ns);
}

TEST(TimedCaptureTest, BuffersJoinExactlyOnceTheEstimateStands) {
    Device device;
    for (int round = 0; round < 500; ++round) device.fragment();
    ASSERT_GT(device.heard.size(), 480U);
    for (std::size_t index = 1; index < device.heard.size(); ++index) {
        const auto expected = static_cast<double>(device.heard[index - 1].second) / 48000;
        const auto step = base::toSeconds(device.heard[index].first - device.heard[index - 1].first);
        ASSERT_NEAR(step, expected, 2e-9) << "at buffer " << index;
    }
    EXPECT_EQ(device.heard.front().first, kStart);
}

TEST(TimedCaptureTest, TheFirstBufferAfterAStallIsPlacedByRepliesThatKnowOfIt) {
    Device device;
    for (int round = 0; round < 200; ++round) device.fragment();
    device.stall(5s);
    const auto before = device.heard.size();
    for (int round = 0; round < 50; ++round) device.fragment();
    ASSERT_GT(device.heard.size(), before + 10);
    const auto resumed = device.heard[200].first;
    EXPECT_LT(std::abs(base::toSeconds(resumed - device.trueTime(200 * 960))), 1e-3);
}

TEST(TimedCaptureTest, LostFramesShiftWhatFollowsByTheirLength) {
    Device device;
    for (int round = 0; round < 100; ++round) device.fragment();
    device.produced += 4800;
    device.now = device.trueTime(device.produced);
    device.capture.addHole(4800, device.now);
    for (int round = 0; round < 50; ++round) device.fragment();
    EXPECT_EQ(device.heard[100].first - device.heard[99].first, 120ms);
}

TEST(TimedCaptureTest, ABlockThatTheServerLostUnnoticedMisplacesATenthOfASecondAtMost) {
    Device device;
    for (int round = 0; round < 200; ++round) device.fragment();
    device.truth += 10667us;
    for (int round = 0; round < 100; ++round) device.fragment();
    int misplaced = 0;
    std::uint64_t frame = 0;
    for (const auto& [time, frames] : device.heard) {
        const bool isAfter = frame >= 200U * 960;
        if (isAfter && std::abs(base::toSeconds(time - device.trueTime(frame))) > 1e-3) ++misplaced;
        frame += frames;
    }
    EXPECT_GT(frame, 290U * 960);
    EXPECT_LE(misplaced, 5);
}

TEST(TimedCaptureTest, TheEndHandsOnWhatStillWaits) {
    Device device;
    for (int round = 0; round < 104; ++round) device.fragment();
    EXPECT_LT(device.heard.size(), 104U);
    device.capture.flush();
    EXPECT_EQ(device.heard.size(), 104U);
    EXPECT_EQ(device.heard.back().first, kStart + 103 * 20ms);
}

TEST(TimedCaptureTest, WithoutRepliesAudioGoesOnAfterTheLongestHold) {
    Device device;
    std::vector<float> samples(960);
    for (int round = 1; round <= 50; ++round) {
        device.now = kStart + round * 20ms;
        device.capture.addAudio(samples, device.now);
        device.capture.releaseOverdue(device.now);
    }
    EXPECT_GE(device.heard.size(), 37U);
    EXPECT_EQ(device.heard.front().first, kStart);
}

}  // namespace
}  // namespace tessivox::audio
