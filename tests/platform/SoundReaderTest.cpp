#include "platform/linux/ffmpeg/SoundReader.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/posix/Descriptor.h"
#include "support/MediaFolder.h"

namespace tessivox::ffmpeg {
namespace {

using testing::signalToNoise;
using Path = std::filesystem::path;

/// Pure tones, one a channel; what they are at another rate, or folded, can be told by heart.
float tone(int channel, double time) {
    return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * (300 + 170 * channel) * time));
}

std::vector<float> tones(double seconds, int sampleRate, int channels) {
    std::vector<float> samples;
    const auto frames = std::llround(seconds * sampleRate);
    for (long long frame = 0; frame < frames; ++frame) {
        for (int channel = 0; channel < channels; ++channel)
            samples.push_back(tone(channel, static_cast<double>(frame) / sampleRate));
    }
    return samples;
}

std::vector<float> foldedTones(double seconds, int sampleRate) {
    auto both = tones(seconds, sampleRate, 2);
    std::vector<float> mean(both.size() / 2);
    for (std::size_t frame = 0; frame < mean.size(); ++frame) mean[frame] = (both[2 * frame] + both[2 * frame + 1]) / 2;
    return mean;
}

/// In blocks of an odd size, as far as it goes.
std::vector<float> readAll(SoundReader& reader) {
    std::vector<float> all, block(static_cast<std::size_t>(777 * reader.channels()));
    while (const auto frames = reader.read(std::span(block)))
        all.insert(all.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(frames) * reader.channels());
    return all;
}

/// Without a tenth of a second at either end, where every coder and filter has to settle.
std::span<const float> middle(std::span<const float> samples, int sampleRate) {
    const auto edge = static_cast<std::size_t>(sampleRate / 10);
    return samples.size() > 2 * edge ? samples.subspan(edge, samples.size() - 2 * edge) : samples;
}

int errorCode(const Path& path, const std::stop_token& stop = {}) {
    try {
        SoundReader reader(path, {}, stop);
        return 0;
    } catch (const MediaError& error) {
        EXPECT_GT(error.description().size(), 20U);
        return error.code();
    }
}

struct SoundReaderTest : ::testing::Test {
    testing::MediaFolder folder;
};

TEST_F(SoundReaderTest, GivesEveryFormatAsMonoAtTheWantedRateWithEveryFrameInItsPlace) {
    constexpr double kSeconds = 3.012;
    folder.wave("tones.wav", tones(kSeconds, 48000, 2), 48000, 2);
    struct Case {
        const char* name;
        const char* options;
        double quality;
    };
    for (const auto& [name, options, quality] : {Case{"float.wav", "-c:a pcm_f32le", 95},
                                                 {"CD.WAV", "-c:a pcm_s16le -ar 44100", 75},
                                                 {"fine.wav", "-c:a pcm_s24le", 95},
                                                 {"speech.aiff", "-ar 22050", 75},
                                                 {"plain.caf", "-c:a pcm_s16be", 75},
                                                 {"lossless.caf", "-c:a alac", 75},
                                                 {"recording.m4a", "-b:a 192k", 25},
                                                 {"low.M4A", "-ar 44100 -b:a 192k", 25},
                                                 {"fragments.m4a", "-b:a 192k -movflags frag_keyframe+empty_moov", 10},
                                                 {"song.mp3", "-b:a 192k", 25},
                                                 {"song.m4a", "-c:a alac", 75}}) {
        SCOPED_TRACE(name);
        SoundReader reader(folder.converted("tones.wav", name, options), {.sampleRate = 16000, .channels = 1});
        const auto mono = readAll(reader);
        const auto expected = foldedTones(kSeconds, 16000);
        const bool isExact = std::string_view(name) != "fragments.m4a";
        EXPECT_NEAR(static_cast<double>(mono.size()), static_cast<double>(expected.size()), isExact ? 1 : 1600);
        // Some files only tell how many packets they hold.
        EXPECT_NEAR(static_cast<double>(reader.frames().value_or(0)), static_cast<double>(mono.size()), 1000);
        if (!isExact) continue;
        EXPECT_GT(signalToNoise(middle(expected, 16000), middle(mono, 16000)), quality);
    }
}

TEST_F(SoundReaderTest, GivesTheFilesOwnFormIfNoneIsWanted) {
    const auto samples = testing::speechLike(30000, 3, 32000);
    SoundReader reader(folder.wave("three.wav", samples, 32000, 3));
    EXPECT_EQ(reader.sampleRate(), 32000);
    EXPECT_EQ(reader.channels(), 3);
    EXPECT_EQ(reader.frames(), 30000U);
    EXPECT_EQ(readAll(reader), samples);
    SoundReader mono(folder.wave("mono.wav", std::span(samples).first(1000), 16000, 1), {.channels = 2});
    EXPECT_EQ(mono.channels(), 1);
}

TEST_F(SoundReaderTest, GivesWholeNumbersThatNeverWrapAround) {
    const std::vector<float> samples{0, 1.5F, -1.5F, 0.5F, -1, 1, 2.6F / 32768, NAN};
    SoundReader reader(folder.wave("loud.wav", samples, 16000, 1));
    std::vector<std::int16_t> numbers(20);
    ASSERT_EQ(reader.read(std::span(numbers)), samples.size());
    numbers.resize(samples.size());
    EXPECT_EQ(numbers, (std::vector<std::int16_t>{0, 32767, -32768, 16384, -32768, 32767, 3, 0}));
}

TEST_F(SoundReaderTest, FoldsChannelsByTheirPlaceAndThoseWithoutOneAlike) {
    for (int speaking = 0; speaking < 6; ++speaking) {
        std::vector<float> surround(6 * 48000);
        for (std::size_t frame = 0; frame < 48000; ++frame)
            surround[6 * frame + static_cast<std::size_t>(speaking)] = 1;
        folder.wave("six.wav", surround, 48000, 6);
        const auto path = folder.converted("six.wav", "six.caf", "-c:a pcm_f32le -af aformat=channel_layouts=5.1");
        SoundReader reader(path, {.channels = 1});
        const auto level = readAll(reader).at(24000);
        // Left, right, centre, bass, and two at the back.
        EXPECT_GT(level, speaking == 3 ? -1.0F : 0.14F) << speaking;
        EXPECT_LT(level, 0.31F) << speaking;
    }
    std::vector<float> twelve(12 * 1000);
    for (std::size_t frame = 0; frame < 1000; ++frame) twelve[12 * frame + 11] = 0.6F;
    SoundReader reader(folder.wave("twelve.wav", twelve, 48000, 12), {.channels = 1});
    EXPECT_NEAR(readAll(reader).at(500), 0.05, 1e-6);
}

TEST_F(SoundReaderTest, WhatIsSoughtIsAsIfReadFromTheBeginning) {
    folder.wave("speech.wav", testing::speechLike(10 * 44100, 2, 44100), 44100, 2);
    for (const auto& [name, quality] : {std::pair{"exact.wav", 90}, {"speech.aiff", 60}, {"speech.m4a", 25}}) {
        SCOPED_TRACE(name);
        const auto path = folder.converted("speech.wav", name, name == std::string("exact.wav") ? "-c:a copy" : "");
        const SoundForm form{.sampleRate = 16000, .channels = 1};
        SoundReader whole(path, form), reader(path, form);
        const auto all = readAll(whole);
        ASSERT_TRUE(reader.canSeek());
        for (const std::size_t frame : {100'000U, 0U, 1U, 5000U, 159'000U, 7777U}) {
            reader.seek(frame);
            std::vector<float> part(16000);
            const auto count = reader.read(std::span(part));
            ASSERT_EQ(count, std::min<std::size_t>(16000, all.size() - frame)) << frame;
            EXPECT_GT(signalToNoise(std::span(all).subspan(frame, count), std::span(part).first(count)), quality)
                << frame;
        }
    }
}

TEST_F(SoundReaderTest, WhatIsDamagedIsSilentAndTheRestStaysInItsPlace) {
    folder.wave("tones.wav", tones(20, 48000, 2), 48000, 2);
    folder.converted("tones.wav", "whole.m4a", "-b:a 192k -movflags +faststart");
    auto bytes = folder.read("whole.m4a");
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 4), bytes.size() / 4, '\xa5');
    SoundReader reader(folder.write("hole.m4a", bytes), {.sampleRate = 16000, .channels = 1});
    const auto expected = foldedTones(20, 16000);
    const auto mono = readAll(reader);
    ASSERT_EQ(mono.size(), expected.size());
    const std::span whole(expected), damaged(mono);
    EXPECT_GT(signalToNoise(whole.subspan(1600, 16000 * 4), damaged.subspan(1600, 16000 * 4)), 25);
    EXPECT_GT(signalToNoise(whole.subspan(16000 * 11, 16000 * 8), damaged.subspan(16000 * 11, 16000 * 8)), 25);
}

TEST_F(SoundReaderTest, WhatWasCutOffIsNotThere) {
    folder.wave("tones.wav", tones(20, 48000, 2), 48000, 2);
    for (const auto* name : {"cut.wav", "cut.aiff", "cut.caf", "cut.mp3", "cut.m4a"}) {
        SCOPED_TRACE(name);
        folder.converted("tones.wav", name, name == std::string("cut.m4a") ? "-movflags +faststart" : "");
        const auto bytes = folder.read(name);
        SoundReader reader(folder.write(name, std::string_view(bytes).substr(0, bytes.size() / 2)),
                           {.sampleRate = 16000, .channels = 1});
        const auto mono = readAll(reader);
        EXPECT_NEAR(static_cast<double>(mono.size()) / 16000, 10, 0.6);
        const auto expected = foldedTones(20, 16000);
        EXPECT_GT(signalToNoise(middle(expected, 16000).first(16000 * 9), middle(mono, 16000).first(16000 * 9)), 20);
    }
}

TEST_F(SoundReaderTest, RefusesWhatHoldsNoSound) {
    EXPECT_NE(errorCode(folder.path() / "missing.wav"), 0);
    EXPECT_NE(errorCode(folder.path()), 0);
    EXPECT_NE(errorCode(folder.write("empty.m4a", "")), 0);
    EXPECT_NE(errorCode(folder.write("text.wav", std::string(100'000, 'x'))), 0);
    EXPECT_NE(errorCode(folder.wave("nothing.wav", {}, 16000, 1)), 0);
    ASSERT_EQ(::mkfifo((folder.path() / "pipe.wav").c_str(), 0600), 0);
    EXPECT_NE(errorCode(folder.path() / "pipe.wav"), 0);
    folder.wave("a.wav", tones(2, 48000, 2), 48000, 2);
    folder.converted("a.wav", "a.m4a");
    const auto bytes = folder.read("a.m4a");
    EXPECT_NE(errorCode(folder.write("no-index.m4a", std::string_view(bytes).substr(0, bytes.size() / 2))), 0);
    const auto video = folder.converted("a.wav", "video.mp4", "-f lavfi -i color=s=64x64:d=1 -map 1:v -c:v mpeg4");
    EXPECT_EQ(errorCode(video), AVERROR_STREAM_NOT_FOUND);
}

TEST_F(SoundReaderTest, FetchesNothingThatAPlaylistNames) {
    const posix::Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(::listen(listener.get(), 8), 0);
    ASSERT_EQ(::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    const auto url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/a.wav";
    const auto local = "file://" + folder.wave("target.wav", tones(3, 48000, 1), 48000, 1).string();
    for (const auto& target : {url, local}) {
        EXPECT_NE(errorCode(folder.write(
                      "hls.wav", "#EXTM3U\n#EXT-X-TARGETDURATION:3\n#EXTINF:3,\n" + target + "\n#EXT-X-ENDLIST\n")),
                  0);
        EXPECT_NE(errorCode(folder.write("concat.mp3", "ffconcat version 1.0\nfile '" + target + "'\n")), 0);
        EXPECT_NE(errorCode(folder.write("plain.caf", target + "\n")), 0);
        EXPECT_NE(errorCode(folder.write("session.aiff", "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nm=audio 9 RTP/AVP 0\n")),
                  0);
    }
    EXPECT_EQ(::accept(listener.get(), nullptr, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SoundReaderTest, StopsWhenAskedTo) {
    const auto path = folder.wave("tones.wav", tones(5, 48000, 2), 48000, 2);
    std::stop_source stop;
    SoundReader reader(path, {}, stop.get_token());
    std::vector<float> block(2000);
    EXPECT_EQ(reader.read(std::span(block)), 1000U);
    stop.request_stop();
    EXPECT_THROW(readAll(reader), MediaError);
    EXPECT_EQ(errorCode(path, stop.get_token()), AVERROR_EXIT);
}

}  // namespace
}  // namespace tessivox::ffmpeg
