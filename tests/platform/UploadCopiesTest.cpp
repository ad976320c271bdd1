#include "platform/linux/ffmpeg/UploadCopies.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "audio/AudioEncoder.h"
#include "base/Uuid.h"
#include "platform/linux/ffmpeg/SoundConversion.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/RandomBytes.h"
#include "support/DecodeAudio.h"
#include "support/MediaFolder.h"
#include "support/TurnLoop.h"

namespace tessivox::ffmpeg {
namespace {

using testing::signalToNoise;
using transcription::DownsampleError;
using Path = std::filesystem::path;
using Copy = std::unique_ptr<transcription::UploadCopy>;

constexpr int kRate = 16000;
constexpr std::size_t kPacket = audio::PacketEncoder::kPacketFrames;

struct UploadCopiesTest : ::testing::Test {
    posix::EventLoop loop;
    posix::PosixFiles files{loop};
    SoundConversion conversion{loop, files};
    testing::MediaFolder sources, temporary;
    std::optional<UploadCopies> copies;

    UploadCopiesTest() { open(); }
    void open() {
        copies.emplace(UploadCopies::Parts{loop, files, conversion, temporary.path(),
                                           [] { return base::makeUuid(posix::fillRandom); }});
    }
    Copy copyOf(const Path& source) {
        return testing::finish(loop, copies->makeUploadCopy(source, {}), std::chrono::seconds(120));
    }
    /// Why there is none. Nothing may be left of the attempt.
    DownsampleError errorOf(const Path& source) {
        try {
            copyOf(source);
        } catch (const DownsampleError& error) {
            EXPECT_TRUE(temporary.names().empty());
            return error;
        }
        return {DownsampleError::Code::failed, "there was a copy"};
    }
    static std::vector<float> monoOf(const Path& path) {
        SoundReader reader(path, {kRate, 1});
        std::vector<float> mono(reader.frames().value_or(0));
        mono.resize(reader.read(std::span(mono)));
        return mono;
    }
    /// What one encoder makes of it in one go.
    std::vector<float> encodedInOneGo(const std::vector<float>& mono) {
        AacEncoderFactory factory;
        audio::AudioEncoder encoder(factory, files.create(sources.path() / "one.m4a"), {kRate, 1, 32000});
        encoder.write(mono);
        encoder.finish();
        return testing::decodeAudio(sources.path() / "one.m4a").samples;
    }
};

TEST_F(UploadCopiesTest, HoldsBothSidesInOneChannelToTheFrameAndIsGoneWithItsOwner) {
    sources.wave("talk.wav", testing::speechLike(12345 + 5 * 44100, 2, 44100), 44100, 2);
    for (const auto* name : {"talk.m4a", "talk.mp3", "talk.wav"}) {
        SCOPED_TRACE(name);
        const auto source =
            name == std::string("talk.wav") ? sources.path() / name : sources.converted("talk.wav", name);
        const auto copy = copyOf(source);
        EXPECT_EQ(temporary.names(), std::vector{copy->path().filename().string()});
        const auto fileName = copy->path().filename().string();
        EXPECT_TRUE(fileName.starts_with("upload_") && base::isUuidText(fileName.substr(7, 36)) &&
                    fileName.ends_with(".m4a"));
        EXPECT_EQ(files.status(copy->path())->mode, 0600U);
        const auto decoded = testing::decodeAudio(copy->path());
        EXPECT_EQ(decoded.sampleRate, kRate);
        EXPECT_EQ(decoded.channels, 1);
        const auto mono = monoOf(source);
        EXPECT_EQ(decoded.frames(), mono.size());
        EXPECT_GT(signalToNoise(mono, decoded.samples), 8);
        EXPECT_LT(files.status(copy->path())->size, 6U * 32000 / 8 + 4000);
    }
    EXPECT_TRUE(temporary.names().empty());
}

TEST_F(UploadCopiesTest, ALongOneIsJoinedOfPiecesWithoutASeam) {
    constexpr int kSeconds = 250;
    sources.wave("long.wav", testing::speechLike(kSeconds * 44100 / 2, 2, 22050), 22050, 2);
    const auto source = sources.converted("long.wav", "long.m4a", "-ar 44100 -aac_coder fast");
    const auto copy = copyOf(source);
    const auto joined = testing::decodeAudio(copy->path()).samples;
    const auto mono = monoOf(source);
    ASSERT_EQ(joined.size(), mono.size());
    const auto single = encodedInOneGo(mono);
    const auto packets = (mono.size() + kPacket - 1) / kPacket;
    constexpr std::size_t kPieces = 3;
    for (std::size_t seam = 1; seam < kPieces; ++seam) {
        const auto around = [&](const std::vector<float>& samples) {
            return std::span(samples).subspan((packets * seam / kPieces - 3) * kPacket, 6 * kPacket);
        };
        EXPECT_GT(signalToNoise(around(mono), around(joined)), signalToNoise(around(mono), around(single)) - 3);
    }
    EXPECT_NEAR(signalToNoise(mono, joined), signalToNoise(mono, single), 0.5);
    EXPECT_NE(joined, single);
}

TEST_F(UploadCopiesTest, OfADamagedRecordingItHoldsWhatCanBeDecoded) {
    sources.wave("long.wav", testing::speechLike(250 * 8000, 2, 8000), 8000, 2);
    sources.converted("long.wav", "whole.m4a", "-ar 16000 -aac_coder fast -movflags +faststart");
    const auto bytes = sources.read("whole.m4a");
    const auto copy = copyOf(sources.write("cut.m4a", std::string_view(bytes).substr(0, bytes.size() * 3 / 4)));
    EXPECT_NEAR(static_cast<double>(testing::decodeAudio(copy->path()).frames()) / kRate, 187, 5);
}

TEST_F(UploadCopiesTest, SaysWhyThereIsNoneAndLeavesNothing) {
    sources.wave("a.wav", testing::speechLike(4800), 48000, 2);
    const auto video = sources.converted("a.wav", "video.m4a", "-f lavfi -i color=s=64x64:d=1 -map 1:v -f mp4");
    EXPECT_STREQ(errorOf(video).what(), "No audio track in source file");
    EXPECT_EQ(errorOf(video).code(), static_cast<int>(DownsampleError::Code::noAudioTrack));
    const auto garbage = errorOf(sources.write("garbage.m4a", std::string(5000, 'x')));
    EXPECT_EQ(garbage.code(), static_cast<int>(DownsampleError::Code::failed));
    EXPECT_NE(garbage.description().find("could not be opened"), std::string::npos);
    EXPECT_NE(errorOf(sources.path() / "missing.m4a").description().find("No such file"), std::string::npos);
    std::filesystem::remove(temporary.path());
    EXPECT_THROW(copyOf(sources.path() / "a.wav"), DownsampleError);
    std::filesystem::create_directory(temporary.path());
}

TEST_F(UploadCopiesTest, DestroyingTheTaskInTheMiddleLeavesNothing) {
    const auto source = sources.wave("long.wav", testing::speechLike(600 * 16000, 1, 16000), 16000, 1);
    for (const int bytes : {0, 100'000}) {
        std::optional<Copy> copy;
        std::exception_ptr error;
        {
            base::TaskScope scope(loop);
            scope.start(testing::keepResult(copies->makeUploadCopy(source, {}), copy, error));
            ASSERT_TRUE(testing::runUntil(loop, [&] {
                const auto names = temporary.names();
                return !names.empty() && std::filesystem::file_size(temporary.path() / names.front()) >=
                                             static_cast<std::uintmax_t>(bytes);
            }));
        }
        EXPECT_FALSE(copy || error);
        EXPECT_TRUE(testing::runUntil(loop, [&] { return temporary.names().empty(); }));
    }
}

TEST_F(UploadCopiesTest, AtTheStartRemovesWhatAKillHasLeftAndNothingElse) {
    copies.reset();  // and with it its look at the folder, which is to be still empty
    const auto leftover = "upload_" + base::makeUuid(posix::fillRandom) + ".m4a";
    const auto used = "upload_" + base::makeUuid(posix::fillRandom) + ".m4a";
    const auto linked = "upload_" + base::makeUuid(posix::fillRandom) + ".m4a";
    const auto folder = "upload_" + base::makeUuid(posix::fillRandom) + ".m4a";
    for (const auto& name : {leftover, used, std::string("upload_1.m4a"), std::string("upload_.m4a"),
                             "upload_" + std::string(36, 'a') + ".m4a", leftover + ".part"})
        temporary.write(name, "x");
    std::filesystem::create_symlink(temporary.path() / "upload_1.m4a", temporary.path() / linked);
    std::filesystem::create_directory(temporary.path() / folder);
    const auto lock = files.open(temporary.path() / used, base::FileAccess::update);
    ASSERT_TRUE(lock->tryLock(temporary.path() / used));
    auto expected = temporary.names();
    std::erase(expected, leftover);
    open();
    copies.reset();
    EXPECT_EQ(temporary.names(), expected);
}

}  // namespace
}  // namespace tessivox::ffmpeg
