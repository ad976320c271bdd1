#include "platform/linux/ffmpeg/AacEncoder.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotEncode = "The sound could not be encoded as AAC; try another audio quality";
constexpr const char* kOutOfMemory = "There is not enough memory to encode sound; close other applications";

/// Far above full scale, far below what makes the encoder give up.
constexpr float kPeak = 8.0F;

/// The encoder refuses a whole stream for one sample that is no number, which a faulty driver can deliver.
float usable(float sample) { return std::isnan(sample) ? 0.0F : std::clamp(sample, -kPeak, kPeak); }

/// The fast search costs less than half and sounds alike, except where bits are scarce.
const char* coderFor(const audio::AudioEncoding& encoding) {
    return encoding.channels == 2 && encoding.bitrate <= 64000 ? "twoloop" : "fast";
}

template <typename Owner>
Owner made(Owner object) {
    if (!object) check(AVERROR(ENOMEM), kOutOfMemory);
    return object;
}

}  // namespace

AacEncoder::AacEncoder(std::unique_ptr<base::File> file, const audio::AudioEncoding& encoding)
    : output_(std::move(file)), frame_(made(Frame(av_frame_alloc()))), packet_(made(Packet(av_packet_alloc()))) {
    openCodec(encoding);
    openMuxer();
    frame_->format = codec_->sample_fmt;
    frame_->sample_rate = codec_->sample_rate;
    frame_->nb_samples = codec_->frame_size;
    check(av_channel_layout_copy(&frame_->ch_layout, &codec_->ch_layout), kOutOfMemory);
    check(av_frame_get_buffer(frame_.get(), 0), kOutOfMemory);
}

void AacEncoder::openCodec(const audio::AudioEncoding& encoding) {
    const AVCodec* aac = avcodec_find_encoder_by_name("aac");
    if (!aac) check(AVERROR_ENCODER_NOT_FOUND, "This FFmpeg cannot encode AAC; install one that can");
    codec_ = made(Codec(avcodec_alloc_context3(aac)));
    codec_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec_->sample_rate = encoding.sampleRate;
    codec_->time_base = {1, encoding.sampleRate};
    codec_->bit_rate = encoding.bitrate;
    av_channel_layout_default(&codec_->ch_layout, encoding.channels);
    codec_->profile = FF_PROFILE_AAC_LOW;
    // MPEG-4 keeps the codec's parameters in the index; "bitexact" keeps the library's version out of the stream.
    codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    check(av_opt_set(codec_->priv_data, "aac_coder", coderFor(encoding), 0), kCannotEncode);
    check(avcodec_open2(codec_.get(), aac, nullptr), kCannotEncode);
}

void AacEncoder::openMuxer() {
    AVFormatContext* format = nullptr;
    check(avformat_alloc_output_context2(&format, nullptr, "ipod", nullptr), kCannotEncode);
    format_.reset(format);
    format_->pb = output_.context();
    format_->flags |= AVFMT_FLAG_BITEXACT;
    // Write when the buffer is full, not after each of some 47 packets a second.
    format_->flush_packets = 0;
    AVStream* stream = avformat_new_stream(format, nullptr);
    if (!stream) check(AVERROR(ENOMEM), kOutOfMemory);
    stream->time_base = codec_->time_base;
    check(avcodec_parameters_from_context(stream->codecpar, codec_.get()), kOutOfMemory);
    // The edit list counts in the movie's time scale: by default milliseconds, which cannot tell the last frame.
    check(av_opt_set_int(format_->priv_data, "movie_timescale", codec_->sample_rate, 0), kCannotEncode);
    const int result = avformat_write_header(format, nullptr);
    output_.rethrowFailure();
    check(result, kCannotEncode);
}

void AacEncoder::beginUse() {
    if (!isUsable_) throw MediaError(AVERROR(EINVAL), "This sound file is finished or has failed; begin a new one.");
    isUsable_ = false;
}

void AacEncoder::write(std::span<const float> interleaved) {
    const auto channels = static_cast<std::size_t>(codec_->ch_layout.nb_channels);
    assert(interleaved.size() % channels == 0);
    beginUse();
    while (interleaved.size() >= channels) {
        const auto room = static_cast<std::size_t>(codec_->frame_size - filled_);
        const auto frames = std::min(room, interleaved.size() / channels);
        fillFrame(interleaved, static_cast<int>(frames));
        interleaved = interleaved.subspan(frames * channels);
        if (filled_ == codec_->frame_size) encodeFilledFrame();
    }
    isUsable_ = true;
}

std::uint64_t AacEncoder::finish() {
    beginUse();
    if (filled_ > 0) encodeFilledFrame();
    encode(nullptr);
    const int result = av_write_trailer(format_.get());
    output_.rethrowFailure();
    check(result, kCannotEncode);
    output_.close();
    return playableFrames();
}

void AacEncoder::fillFrame(std::span<const float> interleaved, int frames) {
    if (filled_ == 0) check(av_frame_make_writable(frame_.get()), kOutOfMemory);
    const int channels = codec_->ch_layout.nb_channels;
    for (int channel = 0; channel < channels; ++channel) {
        const float* from = interleaved.data() + channel;
        auto* to = reinterpret_cast<float*>(frame_->extended_data[channel]) + filled_;
        for (int i = 0; i < frames; ++i, from += channels) to[i] = usable(*from);
    }
    filled_ += frames;
}

void AacEncoder::encodeFilledFrame() {
    frame_->nb_samples = filled_;
    frame_->pts = taken_;
    taken_ += filled_;
    filled_ = 0;
    encode(frame_.get());
}

void AacEncoder::encode(const AVFrame* frame) {
    check(avcodec_send_frame(codec_.get(), frame), kCannotEncode);
    int result = 0;
    while ((result = avcodec_receive_packet(codec_.get(), packet_.get())) >= 0) mux();
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) check(result, kCannotEncode);
}

void AacEncoder::mux() {
    muxedFrames_ += packet_->duration;
    packet_->stream_index = 0;
    const int result = av_write_frame(format_.get(), packet_.get());
    av_packet_unref(packet_.get());
    output_.rethrowFailure();
    check(result, kCannotEncode);
}

std::uint64_t AacEncoder::playableFrames() const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, muxedFrames_ - codec_->initial_padding));
}

std::unique_ptr<audio::AudioEncoder> AacEncoderFactory::open(std::unique_ptr<base::File> file,
                                                             const audio::AudioEncoding& encoding) {
    redirectLog();
    return std::make_unique<AacEncoder>(std::move(file), encoding);
}

}  // namespace tessivox::ffmpeg
