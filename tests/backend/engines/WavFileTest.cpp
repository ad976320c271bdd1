#include "backend/engines/WavFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "backend/engines/EngineError.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/TestFolder.h"

namespace tessivox::backend {
namespace {

struct WavFileTest : ::testing::Test {
    tessivox::testing::TestFolder folder;
    std::filesystem::path path = folder.path() / "a.wav";
    std::vector<std::int16_t> samples = {0, 1, -1, 32767, -32768};

    std::optional<WavLayout> layoutOf(const std::string& bytes) {
        std::filesystem::remove(path);
        std::ofstream(path) << bytes;
        posix::EventLoop loop;
        return readWavLayout(*posix::PosixFiles(loop).open(path, base::FileAccess::read));
    }
};

TEST_F(WavFileTest, WritesAPrivateFileThatReadsBack) {
    writeWavFile(path, samples);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    std::ifstream file(path);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(bytes, wavBytes(samples));
    EXPECT_EQ(bytes.substr(0, 44),
              std::string("RIFF\x2E\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3E\0\0\0\x7D\0\0\2\0\x10\0"
                          "data\x0A\0\0\0",
                          44));
    EXPECT_THROW(writeWavFile(path, samples), base::FileError);
    EXPECT_THROW(wavHeader(std::uint64_t{1} << 40U), EngineError);
}

TEST_F(WavFileTest, FindsTheSamplesWhateverTheHeaderPromises) {
    const auto whole = wavBytes(samples);
    auto layout = layoutOf(whole);
    ASSERT_TRUE(layout);
    EXPECT_EQ(layout->channels, 1);
    EXPECT_EQ(layout->sampleRate, 16000U);
    EXPECT_EQ(layout->dataOffset, 44U);
    EXPECT_EQ(layout->dataSize, 10U);
    EXPECT_EQ(layoutOf(whole.substr(0, 51))->dataSize, 6U);
    auto promising = whole;
    promising.replace(40, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(layoutOf(promising)->dataSize, 10U);
    const auto withList = whole.substr(0, 36) + std::string("LIST\3\0\0\0abc\0", 12) + whole.substr(36);
    EXPECT_EQ(layoutOf(withList)->dataOffset, 56U);
}

TEST_F(WavFileTest, RefusesWhatIsNoWavFile) {
    const auto whole = wavBytes(samples);
    const auto changed = [&](std::size_t at, const std::string& bytes) {
        return std::string(whole).replace(at, bytes.size(), bytes);
    };
    EXPECT_FALSE(layoutOf("#EXTM3U\nhttp://127.0.0.1/a.wav\n"));
    EXPECT_FALSE(layoutOf(whole.substr(0, 40)));
    EXPECT_FALSE(layoutOf(changed(20, "\3")));                       // floating point
    EXPECT_FALSE(layoutOf(changed(22, std::string(1, '\0'))));       // no channel
    EXPECT_FALSE(layoutOf(changed(24, std::string(4, '\0'))));       // no rate
    EXPECT_FALSE(layoutOf(changed(32, "\3")));                       // frames of three bytes
    EXPECT_FALSE(layoutOf(whole.substr(0, 12) + whole.substr(36)));  // samples without a format
}

}  // namespace
}  // namespace tessivox::backend
