#include "platform/linux/ffmpeg/SoundReader.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>
#include <numeric>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotConvert = "The sound in this file cannot be converted; it has an unusual form";

/// Frames. Without room the filter would keep what it holds.
constexpr int kLeastRoom = 4096;

struct Layout {
    AVChannelLayout value{};

    Layout() = default;
    Layout(const Layout&) = delete;
    Layout& operator=(const Layout&) = delete;
    ~Layout() { av_channel_layout_uninit(&value); }
};

enum class Mixing { byPlace, alike };

void setMixing(SwrContext& context, Mixing mixing, int inputs, int outputs) {
    if (mixing == Mixing::byPlace) {
        check(av_opt_set_double(&context, "rematrix_maxval", 1, 0), kCannotConvert);
    } else {
        const std::vector<double> shares(static_cast<std::size_t>(inputs * outputs), 1.0 / inputs);
        check(swr_set_matrix(&context, shares.data(), inputs), kCannotConvert);
    }
}

/// Null if the library cannot mix so.
Resampler tryResampler(const AVFrame& from, int channels, int sampleRate, Mixing mixing) {
    const int own = from.ch_layout.nb_channels;
    Layout input, output;
    check(av_channel_layout_copy(&input.value, &from.ch_layout), kOutOfMemory);
    if (own == channels) {
        check(av_channel_layout_copy(&output.value, &from.ch_layout), kOutOfMemory);
    } else {
        av_channel_layout_default(&output.value, channels);
    }
    SwrContext* context = nullptr;
    check(swr_alloc_set_opts2(&context, &output.value, AV_SAMPLE_FMT_FLT, sampleRate, &input.value,
                              static_cast<AVSampleFormat>(from.format), from.sample_rate, 0, nullptr),
          kCannotConvert);
    Resampler resampler(context);
    check(av_opt_set_int(context, "resampler", SWR_ENGINE_SOXR, 0), kCannotConvert);
    if (own != channels) setMixing(*context, mixing, own, channels);
    return swr_init(context) < 0 ? nullptr : std::move(resampler);
}

/// Where nobody knows the channels' places each counts the same.
Resampler makeResampler(const AVFrame& from, int channels, int sampleRate) {
    Resampler resampler;
    if (from.ch_layout.order == AV_CHANNEL_ORDER_NATIVE)
        resampler = tryResampler(from, channels, sampleRate, Mixing::byPlace);
    if (!resampler) resampler = tryResampler(from, channels, sampleRate, Mixing::alike);
    if (!resampler) check(AVERROR(EINVAL), kCannotConvert);
    return resampler;
}

int wantedChannels(int wanted, int own) { return wanted > 0 ? std::min(wanted, own) : own; }

}  // namespace

SoundReader::SoundReader(const std::filesystem::path& path, SoundForm wanted, std::stop_token stop)
    : decoder_(path, std::move(stop)),
      sampleRate_(wanted.sampleRate > 0 ? wanted.sampleRate : decoder_.sampleRate()),
      channels_(wantedChannels(wanted.channels, decoder_.channels())),
      form_(made(Frame(av_frame_alloc()))) {}

std::optional<std::uint64_t> SoundReader::frames() const {
    const auto frames = decoder_.frames();
    if (!frames) return std::nullopt;
    return static_cast<std::uint64_t>(av_rescale(*frames, sampleRate_, decoder_.sampleRate()));
}

std::size_t SoundReader::read(std::span<float> interleaved) {
    assert(interleaved.size() % static_cast<std::size_t>(channels_) == 0);
    std::size_t filled = 0;
    while (filled < interleaved.size()) {
        if (taken_ == ready_.size() && !pull()) break;
        const auto count = std::min(interleaved.size() - filled, ready_.size() - taken_);
        std::copy_n(ready_.begin() + static_cast<std::ptrdiff_t>(taken_), count,
                    interleaved.begin() + static_cast<std::ptrdiff_t>(filled));
        taken_ += count;
        filled += count;
    }
    return filled / static_cast<std::size_t>(channels_);
}

std::size_t SoundReader::read(std::span<std::int16_t> interleaved) {
    rounding_.resize(interleaved.size());
    const auto frames = read(std::span(rounding_));
    const auto samples = frames * static_cast<std::size_t>(channels_);
    std::transform(rounding_.begin(), rounding_.begin() + static_cast<std::ptrdiff_t>(samples), interleaved.begin(),
                   [](float sample) {
                       const float scaled = std::isnan(sample) ? 0 : sample * 32768.0F;
                       return static_cast<std::int16_t>(std::lrintf(std::clamp(scaled, -32768.0F, 32767.0F)));
                   });
    return frames;
}

/// Makes more samples ready. False at the end.
bool SoundReader::pull() {
    ready_.clear();
    taken_ = 0;
    while (ready_.empty()) {
        SoundDecoder::Piece piece;
        if (decoder_.next(piece)) {
            take(piece);
        } else if (resampler_) {
            drain();
            resampler_.reset();
        } else {
            return false;
        }
        dropBeforeSought();
    }
    return true;
}

void SoundReader::take(const SoundDecoder::Piece& piece) {
    const auto& frame = *piece.frame;
    if (!resampler_ || !isOfForm(frame)) beginForm(frame);
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const int channels = frame.ch_layout.nb_channels;
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const auto offset = piece.first * av_get_bytes_per_sample(format) * (isPlanar ? 1 : channels);
    std::vector<const std::uint8_t*> planes(frame.extended_data, frame.extended_data + (isPlanar ? channels : 1));
    for (auto& plane : planes) plane += offset;
    convert(planes.data(), piece.count);
}

bool SoundReader::isOfForm(const AVFrame& frame) const {
    return frame.format == form_->format && frame.sample_rate == form_->sample_rate &&
           av_channel_layout_compare(&frame.ch_layout, &form_->ch_layout) == 0;
}

void SoundReader::beginForm(const AVFrame& frame) {
    if (resampler_) drain();
    resampler_ = makeResampler(frame, channels_, sampleRate_);
    form_->format = frame.format;
    form_->sample_rate = frame.sample_rate;
    check(av_channel_layout_copy(&form_->ch_layout, &frame.ch_layout), kOutOfMemory);
}

/// Appends to ready_ what becomes of the samples; without any, some of what is still in the filter.
void SoundReader::convert(const std::uint8_t* const* planes, int count) {
    const int expected = swr_get_out_samples(resampler_.get(), count);
    check(expected, kCannotConvert);
    const int room = std::max(expected, kLeastRoom);
    const auto before = ready_.size();
    const auto channels = static_cast<std::size_t>(channels_);
    ready_.resize(before + static_cast<std::size_t>(room) * channels);
    auto* to = reinterpret_cast<std::uint8_t*>(ready_.data() + before);
    const int made = swr_convert(resampler_.get(), &to, room, const_cast<const std::uint8_t**>(planes), count);
    check(made, kCannotConvert);
    ready_.resize(before + static_cast<std::size_t>(made) * channels);
}

void SoundReader::drain() {
    std::size_t before = 0;
    do {
        before = ready_.size();
        convert(nullptr, 0);
    } while (ready_.size() > before);
}

void SoundReader::dropBeforeSought() {
    const auto channels = static_cast<std::size_t>(channels_);
    const auto count = std::min<std::uint64_t>(framesToDrop_, ready_.size() / channels);
    framesToDrop_ -= count;
    ready_.erase(ready_.begin(), ready_.begin() + static_cast<std::ptrdiff_t>(count * channels));
}

/// Begins where a frame of the file and one of the wanted rate coincide, and early enough for the filter to be settled.
void SoundReader::seek(std::uint64_t frame) {
    const int common = std::gcd(sampleRate_, decoder_.sampleRate());
    const auto step = static_cast<std::uint64_t>(sampleRate_ / common);
    const auto settling = static_cast<std::uint64_t>(sampleRate_) / 10;
    const auto steps = (frame - std::min(frame, settling)) / step;
    decoder_.seek(static_cast<std::int64_t>(steps) * (decoder_.sampleRate() / common));
    resampler_.reset();
    ready_.clear();
    taken_ = 0;
    framesToDrop_ = frame - steps * step;
}

}  // namespace tessivox::ffmpeg
