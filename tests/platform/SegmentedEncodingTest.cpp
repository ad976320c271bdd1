#include "audio/SegmentedEncoding.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "audio/CafFile.h"
#include "audio/TemporaryEncoding.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/posix/EventLoop.h"
#include "support/CrashingFiles.h"
#include "support/DecodeAudio.h"
#include "support/FakeEncoder.h"
#include "support/MediaFolder.h"

namespace tessivox::audio {
namespace {

using testing::CrashingFiles;
using testing::FakeEncoder;
using testing::speechLike;

constexpr std::uint64_t kPacket = PacketEncoder::kPacketFrames;

struct SegmentedEncodingTest : ::testing::Test {
    posix::EventLoop loop;
    CrashingFiles disk;
    FakeEncoder fakes;
    ffmpeg::AacEncoderFactory aac;
    const RecordingFiles names{"/data/Incomplete", "/recordings/talk.m4a"};
    std::vector<std::unique_ptr<base::TaskQueue>> queues;
    std::stop_source stop;
    double lastShare = 0;

    void SetUp() override {
        disk.makeFolders("/data/Incomplete");
        disk.makeFolders("/recordings");
    }
    EncodingTools toolsOf(AudioEncoderFactory& encoders, int helpers, std::uint64_t segmentPackets) {
        EncodingTools tools{disk, encoders, {}, segmentPackets * kPacket};
        while (queues.size() < static_cast<std::size_t>(helpers)) {
            queues.push_back(loop.makeQueue("com.tessivox.test.helper", base::QueuePriority::utility));
        }
        for (int index = 0; index < helpers; ++index)
            tools.helpers.push_back(queues[static_cast<std::size_t>(index)].get());
        return tools;
    }
    void record(std::span<const float> samples) {
        disk.removeIfPossible(names.temporary(Track::stereo));
        CafWriter writer(disk.create(names.temporary(Track::stereo)), {48000, 2});
        writer.write(0, samples);
    }
    void encode(const EncodingTools& tools) {
        const auto progress = [this](double share) {
            EXPECT_GE(share, lastShare);
            lastShare = share;
        };
        lastShare = 0;
        disk.removeIfPossible(names.final(Track::stereo));
        encodeFromTemporary(tools, names, Track::stereo, {}, progress, stop.get_token())
            ->publish(names.final(Track::stereo));
        EXPECT_EQ(lastShare, 1);
    }
    std::vector<float> decoded() {
        const auto bytes = disk.readAll(names.final(Track::stereo), 100'000'000);
        return testing::decodeAudio(std::as_bytes(std::span(bytes))).samples;
    }
};

TEST_F(SegmentedEncodingTest, SegmentsJoinWithoutAFrameTooManyOrTooFewWhereverTheyAreCut) {
    for (const std::size_t frames : {60 * kPacket, 60 * kPacket + 1, 61 * kPacket - 1, 100 * kPacket + 500}) {
        const auto samples = speechLike(frames);
        record(samples);
        for (const std::uint64_t segmentPackets : {2U, 7U, 17U, 30U}) {
            const int before = fakes.encoders;
            encode(toolsOf(fakes, 2, segmentPackets));
            EXPECT_EQ(FakeEncoder::samplesOf(disk, names.final(Track::stereo)), samples);
            EXPECT_GE(fakes.encoders - before, 2);
        }
    }
}

TEST_F(SegmentedEncodingTest, AHelperThatIsBusyElsewhereHoldsNothingUp) {
    const auto samples = speechLike(50 * kPacket);
    record(samples);
    const auto tools = toolsOf(fakes, 1, 5);
    std::atomic<bool> mayGoOn = false;
    queues[0]->post([&] { mayGoOn.wait(false); });
    encode(tools);
    EXPECT_EQ(FakeEncoder::samplesOf(disk, names.final(Track::stereo)), samples);
    mayGoOn = true;
    mayGoOn.notify_all();
    queues.clear();  // runs the work that came too late
}

TEST_F(SegmentedEncodingTest, AnErrorInAnySegmentIsOneErrorAndLeavesNoFile) {
    auto samples = speechLike(100 * kPacket);
    for (const std::size_t packet : {0U, 45U, 99U}) {
        samples[2 * packet * kPacket] = fakes.refusedSample = 5 + static_cast<float>(packet);
        record(samples);
        try {
            encode(toolsOf(fakes, 2, 9));
            FAIL() << "the error was lost";
        } catch (const base::Error& error) {
            EXPECT_EQ(error.domain(), "FakeEncoder");
        }
        EXPECT_TRUE(disk.list("/recordings").empty());
    }
    fakes.refusedSample = 1000;
    disk.failFrom(disk.operationCount() + 3, CrashingFiles::Fault::noSpace, "/recordings");
    EXPECT_THROW(encode(toolsOf(fakes, 2, 9)), base::FileError);
    EXPECT_TRUE(disk.list("/recordings").empty());
}

TEST_F(SegmentedEncodingTest, StoppingEndsAllThreadsAndLeavesNothing) {
    record(speechLike(600 * kPacket));
    const auto tools = toolsOf(aac, 2, 60);
    const auto stopMidway = [this](double share) {
        if (share > 0.3) stop.request_stop();
    };
    EXPECT_THROW(encodeFromTemporary(tools, names, Track::stereo, {}, stopMidway, stop.get_token()), base::Error);
    EXPECT_TRUE(disk.list("/recordings").empty());
    EXPECT_TRUE(disk.exists(names.temporary(Track::stereo)));
}

/// Signal to noise in decibels over the packets around each seam together.
double seamQuality(const std::vector<float>& expected, const std::vector<float>& actual, std::uint64_t seams,
                   std::uint64_t packets) {
    double signal = 0, noise = 1e-20;
    for (std::uint64_t seam = 1; seam < seams; ++seam) {
        const auto first = packets * seam / seams - 3;
        for (auto index = 2 * first * kPacket; index < 2 * (first + 6) * kPacket; ++index) {
            signal += std::pow(expected.at(index), 2);
            noise += std::pow(actual.at(index) - expected.at(index), 2);
        }
    }
    return 10 * std::log10(signal / noise);
}

TEST_F(SegmentedEncodingTest, AacSoundsAsGoodAroundTheSeamsAsInOneRunAndHasEveryFrameInItsPlace) {
    constexpr std::size_t kFrames = 1200 * kPacket + 333;
    const auto samples = speechLike(kFrames);
    record(samples);
    encode(toolsOf(aac, 0, 100));
    const auto single = decoded();
    encode(toolsOf(aac, 1, 100));
    const auto joined = decoded();
    ASSERT_EQ(joined.size(), samples.size());
    ASSERT_EQ(single.size(), samples.size());
    EXPECT_NE(joined, single);
    // Sound late by a frame, or one block that does not overlap with its neighbour, costs more than ten decibels.
    const double alone = seamQuality(samples, single, 13, 1201);
    EXPECT_GT(alone, 10);
    EXPECT_NEAR(seamQuality(samples, joined, 13, 1201), alone, 3);
}

}  // namespace
}  // namespace tessivox::audio
