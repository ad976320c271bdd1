#include "platform/linux/ffmpeg/AacEncoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "audio/AudioEncoder.h"
#include "audio/Mpeg4Duration.h"
#include "support/DecodeAudio.h"
#include "support/MediaFolder.h"
#include "support/MemoryFile.h"

namespace tessivox::ffmpeg {
namespace {

using audio::AudioEncoding;
using testing::DecodedAudio;
using testing::MemoryDisk;
using testing::MemoryFile;
using testing::signalToNoise;

constexpr std::size_t kRate = 48000;

float sine(double frequency, std::size_t frame) {
    return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(frame) / kRate));
}

/// 440 Hz on the left, 880 Hz on the right.
std::vector<float> twoTones(std::size_t frames) {
    std::vector<float> sound;
    for (std::size_t i = 0; i < frames; ++i) sound.insert(sound.end(), {sine(440, i), sine(880, i)});
    return sound;
}

/// Tones and noise in turns, about as hard to encode as speech in a room.
std::vector<float> busySound(std::size_t frames, int channels) {
    std::minstd_rand random(1);
    std::normal_distribution<float> noise(0, 0.05F);
    std::vector<float> sound;
    for (std::size_t i = 0; i < frames; ++i) {
        const double pitch = 150 + 100 * std::sin(static_cast<double>(i) / 9000);
        float tone = noise(random);
        for (int overtone = 1; overtone < 20; ++overtone) {
            tone += sine(std::floor(pitch) * overtone, i) / static_cast<float>(overtone);
        }
        for (int channel = 0; channel < channels; ++channel) sound.push_back(0.4F * tone + noise(random));
    }
    return sound;
}

/// Rises through the speech band, so that it is like itself at no other place.
std::vector<float> sweep(std::size_t frames) {
    std::vector<float> sound;
    for (std::size_t i = 0; i < frames; ++i) {
        const double seconds = static_cast<double>(i) / kRate;
        sound.push_back(static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * (200 + 2000 * seconds) * seconds)));
    }
    return sound;
}

/// By how many frames the second runs behind the first, at most 100 either way.
int lagOf(const std::vector<float>& first, const std::vector<float>& second) {
    int best = 0;
    double bestSum = 0;
    for (int lag = -100; lag <= 100; ++lag) {
        double sum = 0;
        for (std::size_t i = 100; i + 100 < first.size(); ++i) {
            sum += first[i] * second.at(i + static_cast<std::size_t>(lag));
        }
        if (sum > bestSum) {
            best = lag;
            bestSum = sum;
        }
    }
    return best;
}

struct AacEncoderTest : ::testing::Test {
    MemoryDisk disk;
    AacEncoderFactory factory;

    std::unique_ptr<audio::AudioEncoder> begin(MemoryDisk& target, const AudioEncoding& encoding = {}) {
        return std::make_unique<audio::AudioEncoder>(factory, std::make_unique<MemoryFile>(target), encoding);
    }
    std::uint64_t encode(std::span<const float> sound, const AudioEncoding& encoding = {}, std::size_t chunk = kRate) {
        const auto encoder = begin(disk, encoding);
        chunk *= static_cast<std::size_t>(encoding.channels);
        for (; sound.size() > chunk; sound = sound.subspan(chunk)) encoder->write(sound.first(chunk));
        encoder->write(sound);
        return encoder->finish();
    }
    DecodedAudio decoded() const { return testing::decodeAudio(std::span<const std::byte>(disk.contents)); }
    double kilobitsOf(int seconds, const AudioEncoding& encoding) {
        disk = {};
        encode(busySound(kRate * static_cast<std::size_t>(seconds), encoding.channels), encoding);
        return static_cast<double>(disk.contents.size()) * 8 / 1000 / seconds;
    }
};

TEST_F(AacEncoderTest, APlayerGetsExactlyTheFramesWritten) {
    for (const int channels : {1, 2}) {
        for (const std::size_t frames : {1U, 1023U, 1024U, 1025U, 48000U * 3 + 17}) {
            disk = {};
            const std::vector<float> sound(frames * static_cast<std::size_t>(channels), 0.25F);
            EXPECT_EQ(encode(sound, {.channels = channels}), frames);
            EXPECT_EQ(decoded().frames(), frames);
            MemoryFile file(disk);
            EXPECT_EQ(audio::readMpeg4Duration(file), (audio::Mpeg4Duration{frames, kRate}));
        }
    }
}

TEST_F(AacEncoderTest, AFileWithoutSoundIsNoError) {
    EXPECT_EQ(encode({}), 0U);
    EXPECT_TRUE(disk.isClosed);
}

TEST_F(AacEncoderTest, EachToneStaysOnItsSideAndInItsPlace) {
    const auto sound = twoTones(kRate * 2 + 500);
    encode(sound);
    const auto result = decoded();
    ASSERT_EQ(result.channels, 2);
    EXPECT_EQ(result.sampleRate, 48000);
    // One frame late, 440 Hz would fall to 24 dB and 880 Hz to 18 dB.
    EXPECT_GT(signalToNoise(DecodedAudio{48000, 2, sound}.channel(0), result.channel(0)), 25);
    EXPECT_GT(signalToNoise(DecodedAudio{48000, 2, sound}.channel(1), result.channel(1)), 25);
}

TEST_F(AacEncoderTest, SoundIsNeitherLateNorEarlyByAFrame) {
    for (const int bitrate : {64000, 128000}) {
        disk = {};
        const auto sound = sweep(kRate);
        encode(sound, {.channels = 1, .bitrate = bitrate});
        EXPECT_EQ(lagOf(sound, decoded().channel(0)), 0);
    }
}

TEST_F(AacEncoderTest, FilesHaveTheSizeAskedFor) {
    for (const int bitrate : {64000, 128000, 256000}) {
        EXPECT_NEAR(kilobitsOf(5, {.bitrate = bitrate}), bitrate / 1000.0, bitrate / 8000.0);
    }
    EXPECT_NEAR(kilobitsOf(5, {.channels = 1, .bitrate = 64000}), 64, 8);
    EXPECT_NEAR(kilobitsOf(5, {.sampleRate = 16000, .channels = 1, .bitrate = 32000}), 96, 12);
}

TEST_F(AacEncoderTest, TheSameSoundGivesTheSameBytesInAnyPieces) {
    const auto sound = busySound(kRate * 2 + 17, 2);
    encode(sound);
    const auto first = std::exchange(disk, {}).contents;
    encode(sound, {}, 441);
    EXPECT_EQ(disk.contents, first);
}

TEST_F(AacEncoderTest, SamplesThatAreNoNumbersDoNotStopTheStream) {
    auto sound = twoTones(kRate);
    sound[30001] = std::numeric_limits<float>::quiet_NaN();
    sound[40000] = std::numeric_limits<float>::infinity();
    sound[50000] = -std::numeric_limits<float>::max();
    EXPECT_EQ(encode(sound), kRate);
    for (const float sample : decoded().samples) ASSERT_LT(std::abs(sample), 16);
}

TEST_F(AacEncoderTest, TheFileIsSyncedLastAndClosed) {
    encode(twoTones(kRate));
    EXPECT_EQ(disk.syncedAt, disk.operations - 1);
    EXPECT_TRUE(disk.isClosed);
}

TEST_F(AacEncoderTest, EachFailureOfTheFileReachesTheCaller) {
    const auto sound = busySound(kRate * 6, 2);
    const AudioEncoding encoding{.bitrate = 256000};
    encode(sound, encoding);
    const int operations = disk.operations;
    ASSERT_GT(operations, 5);
    ASSERT_LT(operations, 12) << "packets are to be written many at a time";
    for (int failing = 0; failing < operations; ++failing) {
        disk = {};
        disk.failAt = failing;
        EXPECT_THROW(encode(sound, encoding), base::FileError) << "operation " << failing;
        EXPECT_TRUE(disk.isClosed);
        EXPECT_EQ(disk.operations, failing + 1) << "nothing may follow a failed operation";
    }
}

TEST_F(AacEncoderTest, AfterAFailureOrTheEndItTakesNothing) {
    const auto second = twoTones(kRate);
    disk.failAt = 1;
    const auto failed = begin(disk);
    EXPECT_THROW(while (true) failed->write(second), base::FileError);
    EXPECT_THROW(failed->write(second), base::Error);
    EXPECT_THROW(failed->finish(), base::Error);
    MemoryDisk other;
    const auto finished = begin(other);
    finished->finish();
    EXPECT_THROW(finished->write(second), base::Error);
}

TEST_F(AacEncoderTest, AnUnfinishedFileIsClosedAndHasNoDuration) {
    const auto sound = busySound(kRate * 10, 2);
    begin(disk)->write(sound);
    EXPECT_TRUE(disk.isClosed);
    EXPECT_GT(disk.contents.size(), 60'000U);
    MemoryFile file(disk);
    EXPECT_EQ(audio::readMpeg4Duration(file), std::nullopt);
}

TEST_F(AacEncoderTest, RefusesWhatAacCannotHold) {
    EXPECT_THROW(begin(disk, {.sampleRate = 12345}), base::Error);
    EXPECT_THROW(begin(disk, {.channels = 0}), base::Error);
    EXPECT_TRUE(disk.isClosed);
}

}  // namespace
}  // namespace tessivox::ffmpeg
