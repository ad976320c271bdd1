#include "platform/linux/ffmpeg/FfmpegLengths.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "audio/AudioEncoder.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "support/MediaFolder.h"
#include "support/MemoryFile.h"

namespace tessivox::ffmpeg {
namespace {

using Path = std::filesystem::path;

struct FfmpegLengthsTest : ::testing::Test {
    FfmpegLengths lengths;
    testing::MediaFolder folder;

    Path wave(const std::string& name) const { return folder.wave(name, std::vector<float>(3 * 8000), 8000, 1); }
};

TEST_F(FfmpegLengthsTest, TellsTheLengthOfSoundWhateverTheFileIsCalled) {
    for (const auto* name : {"a.m4a", "-a.m4a", "http:a.m4a", "caf\xe9\n%d.m4a"})
        EXPECT_EQ(lengths.seconds(wave(name)), 3.0) << name;

    testing::MemoryDisk disk;
    AacEncoderFactory factory;
    audio::AudioEncoder encoder(factory, std::make_unique<testing::MemoryFile>(disk), {});
    encoder.write(std::vector<float>(2 * 48000 * 2));
    encoder.finish();
    const std::string movie(reinterpret_cast<const char*>(disk.contents.data()), disk.contents.size());
    EXPECT_NEAR(lengths.seconds(folder.write("b.m4a", movie)).value_or(0), 2, 0.03);
}

TEST_F(FfmpegLengthsTest, KnowsNoLengthOfWhatIsNoSoundFileAndOpensNothingThatAPlaylistNames) {
    const auto target = wave("target.wav");
    const auto playlist =
        "#EXTM3U\n#EXT-X-TARGETDURATION:3\n#EXTINF:3,\nfile://" + target.string() + "\n#EXT-X-ENDLIST\n";
    EXPECT_EQ(lengths.seconds(folder.write("a.m4a", playlist)), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder.write("b.m4a", "ffconcat version 1.0\nfile target.wav\nduration 3\n")),
              std::nullopt);
    EXPECT_EQ(lengths.seconds(folder.write("c.m4a", std::string(100000, 'x'))), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder.write("d.m4a", "")), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder.path()), std::nullopt);
    EXPECT_EQ(lengths.seconds(folder.path() / "missing.m4a"), std::nullopt);
}

}  // namespace
}  // namespace tessivox::ffmpeg
