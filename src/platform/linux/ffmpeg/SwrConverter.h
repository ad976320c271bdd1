#pragma once

#include <memory>
#include <span>
#include <vector>

#include "audio/ports/AudioConverter.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// The mean of all channels, then libswresample's own engine, which unlike finer ones gives each buffer's samples at
/// once (a lag of about 16 samples of the lower rate). Equal rates pass through bit for bit, without lag.
class SwrConverter final : public audio::AudioConverter {
public:
    /// Rates are taken to the nearest whole number of frames per second.
    SwrConverter(const audio::AudioFormat& input, double outputRate);

    void convert(std::span<const float> samples, std::vector<float>& output) override;
    void reset() override;

private:
    void resample(std::vector<float>& output);

    std::size_t channels_;
    Resampler resampler_;      ///< absent if the rates are equal
    std::vector<float> mono_;  ///< the folded input on its way to the resampler
};

class SwrConverterFactory final : public audio::AudioConverterFactory {
public:
    std::unique_ptr<audio::AudioConverter> make(const audio::AudioFormat& input, double outputRate) override;
};

}  // namespace tessivox::ffmpeg
