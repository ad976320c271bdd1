#include "platform/linux/ffmpeg/SwrConverter.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessivox::ffmpeg {
namespace {

TEST(SwrConverterTest, FoldsEqualRatesToTheMeanWithoutLag) {
    SwrConverterFactory factory;
    std::vector<float> mono;
    const std::vector<float> stereo = {0.5F, 0.25F, -1.0F, 1.0F};
    factory.make({.sampleRate = 48000, .channels = 2}, 48000)->convert(stereo, mono);
    EXPECT_EQ(mono, (std::vector<float>{0.375F, 0.0F}));
}

}  // namespace
}  // namespace tessivox::ffmpeg
