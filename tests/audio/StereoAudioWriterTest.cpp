#include "audio/StereoAudioWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"
#include "support/ManualRuntime.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;
using testing::CrashingFiles;
using testing::FakeEncoder;

constexpr std::size_t kRate = 48000;

struct StereoAudioWriterTest : ::testing::Test {
    CrashingFiles disk;
    testing::ManualRuntime time;
    testing::FakeConverter converters;
    FakeEncoder encoders;
    const std::filesystem::path incomplete = "/home/data/Incomplete";
    const std::filesystem::path output = "/home/recordings/talk.m4a";
    StereoAudioWriter writer{time, disk, converters, encoders, incomplete};
    std::vector<std::string> problems;
    base::Subscription listening =
        writer.onProblem.observe([this](const std::string& problem) { problems.push_back(problem); });
    const base::HostTime zero = time.now();

    void SetUp() override { disk.makeFolders("/home/recordings"); }

    void start(bool separateTracks = false, int bitrate = 128000) {
        writer.start(output, 48000, separateTracks, bitrate);
    }

    /// A buffer of one value from a source, at so much time after the test's beginning.
    void feed(Source source, base::Duration at, std::size_t frames, float value, AudioFormat format = {48000, 1}) {
        const std::vector<float> samples(frames * static_cast<std::size_t>(format.channels), value);
        if (source == Source::microphone) {
            writer.appendMicrophone({format, samples}, zero + at);
        } else {
            writer.appendSystem({format, samples}, zero + at);
        }
        time.settle();
    }
    /// Audio of a source over a span, in buffers of 1024 frames.
    void feedSpan(Source source, base::Duration from, base::Duration until, float value) {
        const auto first = static_cast<std::size_t>(base::toSeconds(from) * kRate);
        const auto last = static_cast<std::size_t>(base::toSeconds(until) * kRate);
        for (auto frame = first; frame < last; frame += 1024) {
            const auto at =
                base::Duration(static_cast<std::int64_t>(std::ceil(static_cast<double>(frame) * 1e9 / kRate)));
            feed(source, at, std::min<std::size_t>(1024, last - frame), value);
        }
    }
    RecordingStopOutcome stop() { return testing::await(time, writer.stop()); }
    /// Left and right values of the saved recording's frames.
    std::vector<std::pair<float, float>> saved() {
        const auto samples = FakeEncoder::samplesOf(disk, output);
        std::vector<std::pair<float, float>> frames;
        for (std::size_t index = 0; index + 1 < samples.size(); index += 2)
            frames.emplace_back(samples[index], samples[index + 1]);
        return frames;
    }
    std::vector<std::filesystem::path> leftovers() {
        auto names = disk.list(incomplete);
        for (const auto& name : disk.list("/home/recordings")) {
            if (name != "talk.m4a") names.push_back(name);
        }
        std::ranges::sort(names);
        return names;
    }
};

TEST_F(StereoAudioWriterTest, TheSecondSourceIsSilentUntilItsFirstBufferAndAlignedAfterwards) {
    start();
    feedSpan(Source::microphone, 0s, 4s, 0.5F);
    feedSpan(Source::system, 2500ms, 4s, 0.25F);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    const auto frames = saved();
    ASSERT_EQ(frames.size(), 4 * kRate);
    EXPECT_EQ(frames[0], std::pair(0.5F, 0.0F));
    EXPECT_EQ(frames[kRate * 5 / 2 - 1], std::pair(0.5F, 0.0F));
    EXPECT_EQ(frames[kRate * 5 / 2], std::pair(0.5F, 0.25F));
    EXPECT_EQ(frames.back(), std::pair(0.5F, 0.25F));
    EXPECT_TRUE(leftovers().empty());
    EXPECT_TRUE(problems.empty());
}

TEST_F(StereoAudioWriterTest, OneSourceAloneIsWrittenAfterTenSecondsAndWhatComesLaterForThoseIsDropped) {
    start();
    feedSpan(Source::microphone, 0s, 10s, 0.5F);
    CafReader partial(disk.open(incomplete / "stereo_talk.caf", base::FileAccess::read));
    EXPECT_EQ(partial.frames(), kRate);
    feed(Source::system, 500ms, 1024, 0.25F);   // already on the disk
    feed(Source::system, 990ms, 1024, 0.25F);   // begins there: dropped whole
    feed(Source::system, 1500ms, 1024, 0.25F);  // still open
    feedSpan(Source::microphone, 10s, 30s, 0.5F);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    const auto frames = saved();
    ASSERT_EQ(frames.size(), 30 * kRate);
    EXPECT_EQ(std::ranges::count(frames, 0.25F, &std::pair<float, float>::second), 1024);
    EXPECT_EQ(frames[kRate * 3 / 2].second, 0.25F);
    EXPECT_EQ(std::ranges::count(frames, 0.5F, &std::pair<float, float>::first),
              static_cast<std::ptrdiff_t>(30 * kRate));
}

TEST_F(StereoAudioWriterTest, WhereBuffersOverlapTheNewerWinsAndTheOtherChannelIsUntouched) {
    start();
    feed(Source::microphone, 0s, 4800, 0.1F);
    feed(Source::system, 0s, 4800, 0.9F);
    feed(Source::microphone, 50ms, 4800, 0.2F);
    stop();
    const auto frames = saved();
    EXPECT_EQ(frames[2399], std::pair(0.1F, 0.9F));
    EXPECT_EQ(frames[2400], std::pair(0.2F, 0.9F));
    EXPECT_EQ(frames.size(), 7200U);
}

TEST_F(StereoAudioWriterTest, APauseVanishesAndWhatWasHeldAcrossItLandsBeforeIt) {
    start();
    feedSpan(Source::microphone, 0s, 900ms, 0.1F);
    feedSpan(Source::system, 0s, 1s, 0.6F);
    time.advance(1s);
    writer.pause();
    feedSpan(Source::microphone, 900ms, 1100ms, 0.2F);  // held back: the first half was before the pause
    time.advance(10s);
    feedSpan(Source::system, 5s, 6s, 0.7F);  // in the pause
    time.advance(20s);
    writer.resume();
    feedSpan(Source::microphone, 30900ms, 32s, 0.3F);  // the first 100 ms were in the pause
    feedSpan(Source::system, 31s, 32s, 0.8F);
    stop();
    const auto frames = saved();
    ASSERT_EQ(frames.size(), 2 * kRate);
    EXPECT_EQ(frames[kRate - 1], std::pair(0.2F, 0.6F));
    EXPECT_EQ(frames[kRate], std::pair(0.3F, 0.8F));
    EXPECT_EQ(std::ranges::count(frames, 0.2F, &std::pair<float, float>::first),
              static_cast<std::ptrdiff_t>(kRate / 10));
}

TEST_F(StereoAudioWriterTest, ASourceThatChangesItsFormatGetsOneNewConverterAndStaysInPlace) {
    start();
    feed(Source::system, 0s, 4800, 0.5F, {48000, 2});
    EXPECT_EQ(converters.made, 0);
    for (int index = 1; index <= 3; ++index) feed(Source::system, index * 100ms, 4410, 0.25F, {44100, 1});
    time.advance(100ms);
    EXPECT_EQ(converters.made, 1);
    writer.pause();
    writer.resume();
    time.settle();
    EXPECT_EQ(converters.resets, 1);
    stop();
    const auto frames = saved();
    EXPECT_EQ(frames[4799].second, 0.5F);
    EXPECT_EQ(frames[4800].second, 0.25F);
    EXPECT_EQ(frames.size(), 4U * 4800);
}

TEST_F(StereoAudioWriterTest, BuffersOfManySecondsAreTakenLikeAnyOther) {
    start();
    feed(Source::microphone, 0s, 30000, 0.1F);
    feed(Source::microphone, 625ms, 40000, 0.2F);
    feed(Source::system, 0s, 4 * 44100, 0.5F, {44100, 2});
    feed(Source::microphone, 2s, 2 * kRate, 0.3F);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    const auto frames = saved();
    ASSERT_EQ(frames.size(), 4 * kRate);
    EXPECT_EQ(frames[69999], std::pair(0.2F, 0.5F));
    EXPECT_EQ(frames[70000].first, 0.0F);
    EXPECT_EQ(std::ranges::count(frames, 0.3F, &std::pair<float, float>::first),
              static_cast<std::ptrdiff_t>(2 * kRate));
    EXPECT_EQ(std::ranges::count(frames, 0.5F, &std::pair<float, float>::second),
              static_cast<std::ptrdiff_t>(4 * kRate));
    EXPECT_TRUE(problems.empty());
}

TEST_F(StereoAudioWriterTest, WithoutAudioNothingRemains) {
    start(true);
    time.advance(5s);
    EXPECT_TRUE(std::holds_alternative<Empty>(stop()));
    EXPECT_TRUE(leftovers().empty());
    EXPECT_FALSE(disk.exists(output));
    EXPECT_TRUE(std::holds_alternative<Empty>(stop()));
}

TEST_F(StereoAudioWriterTest, SeparateTracksHoldOneChannelEachAtTheirBitrate) {
    start(true, 256000);
    feed(Source::microphone, 0s, 1, 0.5F);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    EXPECT_EQ(saved(), (std::vector{std::pair(0.5F, 0.0F)}));
    EXPECT_EQ(FakeEncoder::samplesOf(disk, "/home/recordings/talk_mic.m4a"), std::vector{0.5F});
    EXPECT_EQ(FakeEncoder::samplesOf(disk, "/home/recordings/talk_system.m4a"), std::vector{0.0F});
    EXPECT_EQ((EncodingSettings{48000, 64000}.of(Track::system).bitrate), 64000);
    EXPECT_EQ((EncodingSettings{48000, 128000}.of(Track::system).bitrate), 64000);
    EXPECT_EQ(encoders.opened.back().bitrate, 128000);
}

TEST_F(StereoAudioWriterTest, ALongOutageIsWrittenAsSilenceChunkByChunk) {
    start();
    feed(Source::microphone, 0s, 1024, 0.5F);
    feed(Source::microphone, 3min, 1024, 0.5F);
    EXPECT_EQ(CafReader(disk.open(incomplete / "stereo_talk.caf", base::FileAccess::read)).frames(),
              (3 * 60 - 9) * kRate);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    EXPECT_EQ(FakeEncoder::samplesOf(disk, output).size(), 2 * (3 * 60 * kRate + 1024));
}

TEST_F(StereoAudioWriterTest, ABigTemporaryFileIsRemovedEvenIfTheProgramEndsAtOnce) {
    auto brief = std::make_unique<StereoAudioWriter>(time, disk, converters, encoders, incomplete);
    time.stall("com.tessivox.stereo.sync", true);
    brief->start(output, 48000, false, 128000);
    const std::vector<float> samples(1024, 0.5F);
    for (const auto at : {0s, 180s}) {
        brief->appendMicrophone({{48000, 1}, samples}, zero + at);
        time.settle();
    }
    ASSERT_TRUE(std::holds_alternative<Saved>(testing::await(time, brief->stop())));
    ASSERT_EQ(leftovers().size(), 1U);
    brief.reset();
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(StereoAudioWriterTest, AnEncoderThatFailedOnTheWayIsMadeUpForAtTheStop) {
    encoders.refusedChannels = 2;
    start();
    feedSpan(Source::microphone, 0s, 3s, 0.5F);
    encoders.refusedChannels = 0;
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    EXPECT_EQ(saved().size(), 3 * kRate);
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(StereoAudioWriterTest, AResultThatIsShortByAFrameIsNotSavedAndTheRawAudioIsKeptBesideTheOutput) {
    encoders.missingFrames = 1;
    disk.put("/home/recordings/talk.caf", "an older rescue");
    disk.put("/home/recordings/talk_2.caf", "the user's own");
    start();
    feedSpan(Source::microphone, 0s, 3s, 0.5F);
    const auto outcome = stop();
    ASSERT_TRUE(std::holds_alternative<ConversionFailed>(outcome));
    EXPECT_EQ(std::get<ConversionFailed>(outcome).rescuedPCM, "/home/recordings/talk_3.caf");
    EXPECT_EQ(CafReader(disk.open("/home/recordings/talk_3.caf", base::FileAccess::read)).frames(), 3 * kRate);
    EXPECT_EQ(disk.readAll("/home/recordings/talk.caf", 100), "an older rescue");
    EXPECT_EQ(disk.readAll("/home/recordings/talk_2.caf", 100), "the user's own");
    EXPECT_EQ(leftovers().size(), 3U);
    EXPECT_FALSE(disk.exists(output));
}

TEST_F(StereoAudioWriterTest, AnExtraTrackThatFailsLeavesTheRecordingInPlaceAndIsNoSuccess) {
    encoders.refusedChannels = 1;
    start(true);
    feedSpan(Source::microphone, 0s, 2s, 0.5F);
    ASSERT_TRUE(std::holds_alternative<ConversionFailed>(stop()));
    EXPECT_EQ(saved().size(), 2 * kRate);
    EXPECT_EQ(leftovers(), std::vector<std::filesystem::path>{"talk.caf"});
}

TEST_F(StereoAudioWriterTest, ANameThatWasTakenMeanwhileIsNeverReplaced) {
    start();
    feedSpan(Source::microphone, 0s, 2s, 0.5F);
    disk.put(output, "somebody else's");
    const auto outcome = stop();
    ASSERT_TRUE(std::holds_alternative<Saved>(outcome));
    EXPECT_EQ(std::get<Saved>(outcome).url, "/home/recordings/talk_2.m4a");
    EXPECT_EQ(disk.readAll(output, 100), "somebody else's");
}

TEST_F(StereoAudioWriterTest, AStalledDiskHoldsTenSecondsAndTellsOfMore) {
    start();
    time.stall("com.tessivox.stereo.write", true);
    feedSpan(Source::microphone, 0s, 9s, 0.5F);
    time.stall("com.tessivox.stereo.write", false);
    EXPECT_TRUE(problems.empty());
    time.stall("com.tessivox.stereo.write", true);
    feedSpan(Source::microphone, 9s, 60s, 0.5F);
    time.stall("com.tessivox.stereo.write", false);
    EXPECT_EQ(problems.size(), 1U);
    feedSpan(Source::microphone, 60s, 61s, 0.5F);
    stop();
    const auto frames = saved();
    EXPECT_EQ(frames.size(), 61 * kRate);
    EXPECT_EQ(frames[9 * kRate].first, 0.5F);
    EXPECT_EQ(frames[45 * kRate].first, 0.0F);
    EXPECT_EQ(frames.back().first, 0.5F);
}

TEST_F(StereoAudioWriterTest, AnEncoderThatIsBehindReadsFromTheTemporaryFile) {
    start();
    time.stall("com.tessivox.stereo.encode", true);
    for (int second = 0; second < 40; ++second) {
        feedSpan(Source::microphone, second * 1s, (second + 1) * 1s, static_cast<float>(second));
        feedSpan(Source::system, second * 1s, (second + 1) * 1s, 0.25F);
    }
    time.stall("com.tessivox.stereo.encode", false);
    ASSERT_TRUE(std::holds_alternative<Saved>(stop()));
    const auto frames = saved();
    ASSERT_EQ(frames.size(), 40 * kRate);
    for (std::size_t second = 0; second < 40; ++second)
        EXPECT_EQ(frames[second * kRate + 7].first, static_cast<float>(second));
    EXPECT_EQ(encoders.opened.size(), 1U);
}

}  // namespace
}  // namespace tessivox::audio
