#include "platform/linux/ffmpeg/SoundConversion.h"

#include <gtest/gtest.h>

#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/DecodeAudio.h"
#include "support/MediaFolder.h"

namespace tessivox::ffmpeg {
namespace {

using testing::signalToNoise;
using Path = std::filesystem::path;

struct SoundConversionTest : ::testing::Test {
    posix::EventLoop loop;
    posix::PosixFiles files{loop};
    SoundConversion conversion{loop, files};
    testing::MediaFolder folder;
    std::vector<double> told;
    std::stop_source stop;
    bool isToStop = false;

    double convert(const Path& source, const audio::AudioEncoding& form = {}) {
        told.clear();
        folder.write("out.m4a", "what is overwritten");
        const auto tell = [this](double share) {
            EXPECT_GT(share, told.empty() ? 0 : told.back());
            told.push_back(share);
            if (isToStop && share > 0.4) stop.request_stop();
        };
        return conversion.convertToM4A(source, folder.path() / "out.m4a", form, tell, stop.get_token());
    }
    testing::DecodedAudio result() const { return testing::decodeAudio(folder.path() / "out.m4a"); }
};

TEST_F(SoundConversionTest, MakesAnM4aOfEveryFormatThatSoundsLikeIt) {
    const auto speech = testing::speechLike(std::size_t{5} * 48000);
    folder.wave("speech.wav", speech, 48000, 2);
    for (const auto* name : {"speech.WAV", "speech.mp3", "speech.aiff", "speech.caf"}) {
        SCOPED_TRACE(name);
        EXPECT_NEAR(convert(folder.converted("speech.wav", name)), 5, 1e-4);
        EXPECT_EQ(told.back(), 1);
        const auto sound = result();
        EXPECT_EQ(sound.sampleRate, 48000);
        ASSERT_EQ(sound.samples.size(), speech.size());
        EXPECT_GT(signalToNoise(speech, sound.samples), 10);
    }
}

TEST_F(SoundConversionTest, KeepsOneChannelWithItsShareOfTheBitsAndFoldsMoreThanTwo) {
    const auto mono = testing::speechLike(std::size_t{10} * 32000, 1, 32000);
    EXPECT_NEAR(convert(folder.wave("mono.wav", mono, 32000, 1)), 10, 1e-4);
    EXPECT_EQ(result().channels, 1);
    const auto oneChannel = folder.read("out.m4a").size();
    convert(folder.wave("six.wav", testing::speechLike(std::size_t{10} * 48000, 6), 48000, 6));
    EXPECT_EQ(result().channels, 2);
    EXPECT_LT(oneChannel, 10U * 64000 / 8 + 10'000);
    EXPECT_LT(folder.read("out.m4a").size(), 10U * 128000 / 8 + 10'000);
}

TEST_F(SoundConversionTest, HoldsExactlyTheFramesOfALongSoundAtAnotherRate) {
    const std::size_t frames = 260 * 11025 + 77;
    const auto speech = testing::speechLike(frames, 1, 11025);
    const double seconds = static_cast<double>(frames) / 11025;
    EXPECT_NEAR(convert(folder.wave("long.wav", speech, 11025, 1), {16000, 1, 32000}), seconds, 1.5 / 16000);
    EXPECT_NEAR(static_cast<double>(result().frames()), seconds * 16000, 1.5);
}

TEST_F(SoundConversionTest, AFullDiskIsAnErrorAndStoppingEndsIt) {
    const auto source = folder.wave("long.wav", testing::speechLike(std::size_t{300} * 8000, 1, 8000), 8000, 1);
    const auto ignore = [](double) {};
    EXPECT_THROW(conversion.convertToM4A(source, "/dev/full", {}, ignore, {}), base::Error);
    isToStop = true;
    try {
        convert(source);
        FAIL() << "it was not stopped";
    } catch (const MediaError& error) {
        EXPECT_EQ(error.code(), AVERROR_EXIT);
    }
}

}  // namespace
}  // namespace tessivox::ffmpeg
