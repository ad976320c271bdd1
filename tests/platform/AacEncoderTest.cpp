#include "platform/linux/ffmpeg/AacEncoder.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/MemoryFile.h"

namespace tessivox::ffmpeg {
namespace {

using audio::AudioEncoding;
using testing::MemoryDisk;
using testing::MemoryFile;

struct AacEncoderTest : ::testing::Test {
    MemoryDisk disk;
    AacEncoderFactory factory;

    std::uint64_t encode(std::span<const float> sound, const AudioEncoding& encoding = {}) {
        const auto encoder = factory.open(std::make_unique<MemoryFile>(disk), encoding);
        encoder->write(sound);
        return encoder->finish();
    }
};

TEST_F(AacEncoderTest, ReportsExactlyTheFramesWritten) {
    for (const std::size_t frames : {0U, 1U, 1023U, 1024U, 1025U, 48000U * 3 + 17}) {
        disk = {};
        EXPECT_EQ(encode(std::vector<float>(frames * 2, 0.25F)), frames);
        EXPECT_TRUE(disk.isClosed);
        EXPECT_EQ(disk.syncedAt, disk.operations - 1);
    }
}

}  // namespace
}  // namespace tessivox::ffmpeg
