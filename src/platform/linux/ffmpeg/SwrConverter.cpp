#include "platform/linux/ffmpeg/SwrConverter.h"

#include <cassert>
#include <cerrno>
#include <cmath>
#include <cstdint>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotConvert = "The sound of this device cannot be converted; choose another device";

int wholeRate(double rate) {
    if (!(rate >= 1 && rate <= 10'000'000)) check(AVERROR(EINVAL), kCannotConvert);
    return static_cast<int>(std::lround(rate));
}

Resampler makeResampler(int inputRate, int outputRate) {
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    SwrContext* context = nullptr;
    check(swr_alloc_set_opts2(&context, &mono, AV_SAMPLE_FMT_FLT, outputRate, &mono, AV_SAMPLE_FMT_FLT, inputRate, 0,
                              nullptr),
          kCannotConvert);
    Resampler resampler(context);
    check(swr_init(context), kCannotConvert);
    return resampler;
}

/// Replaces `mono` by the mean of the channels of each frame.
void fold(std::span<const float> samples, std::size_t channels, std::vector<float>& mono) {
    const std::size_t frames = samples.size() / channels;
    mono.resize(frames);
    const float share = 1.0F / static_cast<float>(channels);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        float sum = 0;
        for (std::size_t channel = 0; channel < channels; ++channel) sum += samples[frame * channels + channel];
        mono[frame] = sum * share;
    }
}

}  // namespace

SwrConverter::SwrConverter(const audio::AudioFormat& input, double outputRate) {
    if (input.channels < 1) check(AVERROR(EINVAL), kCannotConvert);
    channels_ = static_cast<std::size_t>(input.channels);
    const int from = wholeRate(input.sampleRate);
    const int to = wholeRate(outputRate);
    if (from != to) resampler_ = makeResampler(from, to);
}

void SwrConverter::convert(std::span<const float> samples, std::vector<float>& output) {
    assert(samples.size() % channels_ == 0);
    fold(samples, channels_, resampler_ ? mono_ : output);
    if (resampler_) resample(output);
}

void SwrConverter::resample(std::vector<float>& output) {
    const int count = static_cast<int>(mono_.size());
    const int room = swr_get_out_samples(resampler_.get(), count);
    check(room, kCannotConvert);
    output.resize(static_cast<std::size_t>(room));
    auto* to = reinterpret_cast<std::uint8_t*>(output.data());
    const auto* from = reinterpret_cast<const std::uint8_t*>(mono_.data());
    // No input at all means the end of the sound to the library: an empty buffer must not drain the filter.
    const int made = count > 0 ? swr_convert(resampler_.get(), &to, room, &from, count) : 0;
    check(made, kCannotConvert);
    output.resize(static_cast<std::size_t>(made));
}

void SwrConverter::reset() {
    if (resampler_) check(swr_init(resampler_.get()), kCannotConvert);
}

std::unique_ptr<audio::AudioConverter> SwrConverterFactory::make(const audio::AudioFormat& input, double outputRate) {
    redirectLog();
    return std::make_unique<SwrConverter>(input, outputRate);
}

}  // namespace tessivox::ffmpeg
