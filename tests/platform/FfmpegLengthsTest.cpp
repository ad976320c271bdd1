#include "platform/linux/ffmpeg/FfmpegLengths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "audio/AudioEncoder.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "support/MemoryFile.h"

namespace tessivox::ffmpeg {
namespace {

using Path = std::filesystem::path;

struct FfmpegLengthsTest : ::testing::Test {
    FfmpegLengths lengths;
    Path folder = [] {
        std::string name = "/tmp/tessivox-test-XXXXXX";
        return Path(::mkdtemp(name.data()));
    }();
    ~FfmpegLengthsTest() override { std::filesystem::remove_all(folder); }

    Path write(const std::string& name, const std::string& contents) {
        std::ofstream(folder / name, std::ios::binary) << contents;
        return folder / name;
    }
    static std::string little(std::uint32_t value, int width) {
        std::string bytes;
        for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
        return bytes;
    }
    /// A wave file of 16-bit mono silence at 8 kHz.
    static std::string wave(std::uint32_t seconds) {
        const std::string sound(std::size_t{seconds} * 16000, '\0');
        const auto size = static_cast<std::uint32_t>(sound.size());
        return "RIFF" + little(36 + size, 4) + "WAVEfmt " + little(16, 4) + little(1, 2) + little(1, 2) +
               little(8000, 4) + little(16000, 4) + little(2, 2) + little(16, 2) + "data" + little(size, 4) + sound;
    }
};

TEST_F(FfmpegLengthsTest, TellsTheLengthOfSoundWhateverTheFileIsCalled) {
    for (const auto* name : {"a.m4a", "-a.m4a", "http:a.m4a", "caf\xe9\n%d.m4a"})
        EXPECT_EQ(lengths.seconds(write(name, wave(3))), 3.0) << name;

    testing::MemoryDisk disk;
    AacEncoderFactory factory;
    audio::AudioEncoder encoder(factory, std::make_unique<testing::MemoryFile>(disk), {});
    encoder.write(std::vector<float>(2 * 48000 * 2));
    encoder.finish();
    const std::string movie(reinterpret_cast<const char*>(disk.contents.data()), disk.contents.size());
    EXPECT_NEAR(lengths.seconds(write("b.m4a", movie)).value_or(0), 2, 0.03);
}

TEST_F(FfmpegLengthsTest, KnowsNoLengthOfWhatIsNoSoundFileAndOpensNothingThatAPlaylistNames) {
    const auto target = write("target.wav", wave(3));
    const auto playlist =
        "#EXTM3U\n#EXT-X-TARGETDURATION:3\n#EXTINF:3,\nfile://" + target.string() + "\n#EXT-X-ENDLIST\n";
    EXPECT_EQ(lengths.seconds(write("a.m4a", playlist)), std::nullopt);
    EXPECT_EQ(lengths.seconds(write("b.m4a", "ffconcat version 1.0\nfile target.wav\nduration 3\n")), std::nullopt);
    EXPECT_EQ(lengths.seconds(write("c.m4a", std::string(100000, 'x'))), std::nullopt);
    EXPECT_EQ(lengths.seconds(write("d.m4a", "")), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder / "missing.m4a"), std::nullopt);
}

}  // namespace
}  // namespace tessivox::ffmpeg
