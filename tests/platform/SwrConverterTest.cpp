#include "platform/linux/ffmpeg/SwrConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <span>
#include <vector>

#include "base/Error.h"

namespace tessivox::ffmpeg {
namespace {

using audio::AudioFormat;

constexpr double kTau = 2 * std::numbers::pi;

std::vector<float> sine(double frequency, double rate, std::size_t frames, int channels = 1) {
    std::vector<float> sound;
    for (std::size_t i = 0; i < frames; ++i) {
        const auto sample = static_cast<float>(0.5 * std::sin(kTau * frequency * static_cast<double>(i) / rate));
        sound.insert(sound.end(), static_cast<std::size_t>(channels), sample);
    }
    return sound;
}

/// How a sound differs from the sine that fits it best.
struct SineFit {
    double amplitude = 0;
    double lagSeconds = 0;  ///< behind a sine that begins at the first sample
    double signalToNoise = 0;
};

SineFit fitSine(std::span<const float> sound, double frequency, double rate) {
    // Whole periods make sine and cosine orthogonal, so that two projections are the least-squares fit.
    const auto wholeRate = static_cast<std::size_t>(rate);
    const auto period = wholeRate / std::gcd(wholeRate, static_cast<std::size_t>(frequency));
    const std::size_t count = sound.size() / period * period;
    double inPhase = 0;
    double behind = 0;
    double energy = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double angle = kTau * frequency * static_cast<double>(i) / rate;
        inPhase += sound[i] * std::sin(angle);
        behind -= sound[i] * std::cos(angle);
        energy += sound[i] * static_cast<double>(sound[i]);
    }
    const double fitted = (inPhase * inPhase + behind * behind) * 2 / static_cast<double>(count);
    return {.amplitude = std::hypot(inPhase, behind) * 2 / static_cast<double>(count),
            .lagSeconds = std::atan2(behind, inPhase) / (kTau * frequency),
            .signalToNoise = 10 * std::log10(fitted / std::max(energy - fitted, 1e-15))};
}

struct SwrConverterTest : ::testing::Test {
    SwrConverterFactory factory;
    std::vector<float> output;

    /// Converts in buffers and returns what each gave, joined.
    std::vector<float> convert(audio::AudioConverter& converter, std::span<const float> sound, std::size_t samples,
                               std::vector<std::size_t>* counts = nullptr) {
        std::vector<float> joined;
        for (; !sound.empty(); sound = sound.subspan(std::min(samples, sound.size()))) {
            converter.convert(sound.first(std::min(samples, sound.size())), output);
            joined.insert(joined.end(), output.begin(), output.end());
            if (counts) counts->push_back(output.size());
        }
        return joined;
    }
};

TEST_F(SwrConverterTest, FoldsToTheMeanOfAllChannelsBitForBitAtEqualRates) {
    const std::vector<float> stereo = {0.5F, 0.25F, -1.0F, 1.0F};
    factory.make({48000, 2}, 48000)->convert(stereo, output);
    EXPECT_EQ(output, (std::vector<float>{0.375F, 0.0F}));
    const std::vector<float> surround = {1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, -3};
    factory.make({48000, 6}, 48000)->convert(surround, output);
    ASSERT_EQ(output.size(), 2U);
    EXPECT_FLOAT_EQ(output[0], 3.5F);
    EXPECT_FLOAT_EQ(output[1], -0.5F);
    const auto mono = sine(440, 48000, 480);
    factory.make({48000, 1}, 48000)->convert(mono, output);
    EXPECT_EQ(output, mono);
}

TEST_F(SwrConverterTest, AResampledToneStaysCleanAndInItsPlace) {
    for (const double frequency : {300.0, 1000.0, 6000.0}) {
        const auto converter = factory.make({44100, 1}, 48000);
        const auto result = convert(*converter, sine(frequency, 44100, 44100 * 3), 512);
        const auto fit = fitSine(std::span(result).subspan(48000), frequency, 48000);
        EXPECT_GT(fit.signalToNoise, 80) << frequency << " Hz";
        EXPECT_NEAR(fit.amplitude, 0.5, 0.005);
        EXPECT_NEAR(fit.lagSeconds, 0, 2e-6);
    }
}

TEST_F(SwrConverterTest, EachBufferGivesItsOwnLengthAtOnce) {
    struct Case {
        double rate;
        std::size_t frames;
    };
    for (const auto& [rate, frames] : {Case{44100, 512}, Case{16000, 160}, Case{8000, 80}, Case{96000, 1024}}) {
        const double exact = static_cast<double>(frames) * 48000 / rate;
        std::vector<std::size_t> counts;
        const auto converter = factory.make({rate, 1}, 48000);
        const auto result = convert(*converter, sine(440, rate, frames * 500), frames, &counts);
        for (std::size_t i = 1; i < counts.size(); ++i) {
            EXPECT_GE(static_cast<double>(counts[i]), std::floor(exact)) << rate;
            EXPECT_LE(static_cast<double>(counts[i]), std::ceil(exact)) << rate;
        }
        EXPECT_NEAR(static_cast<double>(result.size()), exact * 500, 0.0025 * 48000) << rate;
    }
}

TEST_F(SwrConverterTest, ChannelsAreFoldedBeforeResampling) {
    const auto stereo = factory.make({44100, 2}, 48000);
    const auto mono = factory.make({44100, 1}, 48000);
    EXPECT_EQ(convert(*stereo, sine(440, 44100, 44100, 2), 1024), convert(*mono, sine(440, 44100, 44100), 512));
    auto opposed = sine(440, 44100, 44100, 2);
    for (std::size_t i = 1; i < opposed.size(); i += 2) opposed[i] = -opposed[i];
    stereo->reset();
    for (const float sample : convert(*stereo, opposed, 1024)) ASSERT_EQ(sample, 0);
}

TEST_F(SwrConverterTest, ResetForgetsWhatCameBefore) {
    const auto used = factory.make({44100, 1}, 48000);
    convert(*used, sine(3000, 44100, 10'007), 512);
    used->reset();
    const auto fresh = factory.make({44100, 1}, 48000);
    const auto next = sine(440, 44100, 5000);
    EXPECT_EQ(convert(*used, next, 512), convert(*fresh, next, 512));
}

TEST_F(SwrConverterTest, AnEmptyBufferChangesNothing) {
    const auto sound = sine(440, 44100, 4096);
    const auto whole = factory.make({44100, 1}, 48000);
    const auto broken = factory.make({44100, 1}, 48000);
    const auto expected = convert(*whole, sound, 2048);
    auto joined = convert(*broken, std::span(sound).first(2048), 2048);
    broken->convert({}, output);
    EXPECT_TRUE(output.empty());
    const auto rest = convert(*broken, std::span(sound).subspan(2048), 2048);
    joined.insert(joined.end(), rest.begin(), rest.end());
    EXPECT_EQ(joined, expected);
}

TEST_F(SwrConverterTest, RefusesFormatsThatCannotBe) {
    EXPECT_THROW(factory.make({48000, 0}, 48000), base::Error);
    EXPECT_THROW(factory.make({0, 1}, 48000), base::Error);
    EXPECT_THROW(factory.make({std::numeric_limits<double>::quiet_NaN(), 1}, 48000), base::Error);
    EXPECT_THROW(factory.make({48000, 1}, -1), base::Error);
}

}  // namespace
}  // namespace tessivox::ffmpeg
