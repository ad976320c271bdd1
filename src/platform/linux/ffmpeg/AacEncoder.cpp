#include "platform/linux/ffmpeg/AacEncoder.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>

#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/ffmpeg/Mpeg4File.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotEncode = "The sound could not be encoded as AAC; try another audio quality";

/// Far above full scale, far below what makes the encoder give up.
constexpr float kPeak = 8.0F;

/// The encoder refuses a whole stream for one sample that is no number, which a faulty driver can deliver.
float usable(float sample) { return std::isnan(sample) ? 0.0F : std::clamp(sample, -kPeak, kPeak); }

/// The fast search costs less than half and sounds alike, except where bits are scarce.
const char* coderFor(const audio::AudioEncoding& encoding) {
    return encoding.channels == 2 && encoding.bitrate <= 64000 ? "twoloop" : "fast";
}

}  // namespace

Codec openAac(const audio::AudioEncoding& encoding) {
    const AVCodec* aac = avcodec_find_encoder_by_name("aac");
    if (!aac) check(AVERROR_ENCODER_NOT_FOUND, "This FFmpeg cannot encode AAC; install one that can");
    auto codec = made(Codec(avcodec_alloc_context3(aac)));
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->sample_rate = encoding.sampleRate;
    codec->time_base = {1, encoding.sampleRate};
    codec->bit_rate = encoding.bitrate;
    av_channel_layout_default(&codec->ch_layout, encoding.channels);
    codec->profile = FF_PROFILE_AAC_LOW;
    // MPEG-4 keeps the codec's parameters in the index; "bitexact" keeps the library's version out of the stream.
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    check(av_opt_set(codec->priv_data, "aac_coder", coderFor(encoding), 0), kCannotEncode);
    // This encoder's noise shaping in time costs up to a tenth and brings the result no nearer to the original.
    check(av_opt_set_int(codec->priv_data, "aac_tns", 0, 0), kCannotEncode);
    check(avcodec_open2(codec.get(), aac, nullptr), kCannotEncode);
    return codec;
}

AacEncoder::AacEncoder(const audio::AudioEncoding& encoding)
    : codec_(openAac(encoding)), frame_(made(Frame(av_frame_alloc()))), packet_(made(Packet(av_packet_alloc()))) {
    assert(codec_->frame_size == kPacketFrames && codec_->initial_padding == kPacketFrames);
    frame_->format = codec_->sample_fmt;
    frame_->sample_rate = codec_->sample_rate;
    frame_->nb_samples = codec_->frame_size;
    check(av_channel_layout_copy(&frame_->ch_layout, &codec_->ch_layout), kOutOfMemory);
    check(av_frame_get_buffer(frame_.get(), 0), kOutOfMemory);
}

void AacEncoder::write(std::span<const float> interleaved, audio::AudioPackets& packets) {
    const auto channels = static_cast<std::size_t>(codec_->ch_layout.nb_channels);
    assert(interleaved.size() % channels == 0);
    while (interleaved.size() >= channels) {
        const auto room = static_cast<std::size_t>(codec_->frame_size - filled_);
        const auto frames = std::min(room, interleaved.size() / channels);
        fillFrame(interleaved, static_cast<int>(frames));
        interleaved = interleaved.subspan(frames * channels);
        if (filled_ == codec_->frame_size) encodeFilledFrame(packets);
    }
}

void AacEncoder::finish(audio::AudioPackets& packets) {
    if (filled_ > 0) encodeFilledFrame(packets);
    encode(nullptr, packets);
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

void AacEncoder::encodeFilledFrame(audio::AudioPackets& packets) {
    frame_->nb_samples = filled_;
    frame_->pts = taken_;
    taken_ += filled_;
    filled_ = 0;
    encode(frame_.get(), packets);
}

void AacEncoder::encode(const AVFrame* frame, audio::AudioPackets& packets) {
    check(avcodec_send_frame(codec_.get(), frame), kCannotEncode);
    int result = 0;
    while ((result = avcodec_receive_packet(codec_.get(), packet_.get())) >= 0) {
        const auto bytes = std::as_bytes(std::span(packet_->data, static_cast<std::size_t>(packet_->size)));
        packets.append(bytes, static_cast<std::uint32_t>(packet_->duration));
        av_packet_unref(packet_.get());
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) check(result, kCannotEncode);
}

std::unique_ptr<audio::PacketEncoder> AacEncoderFactory::makeEncoder(const audio::AudioEncoding& encoding) {
    redirectLog();
    return std::make_unique<AacEncoder>(encoding);
}

std::unique_ptr<audio::PacketFile> AacEncoderFactory::makeFile(std::unique_ptr<base::File> file,
                                                               const audio::AudioEncoding& encoding) {
    redirectLog();
    return std::make_unique<Mpeg4File>(std::move(file), *openAac(encoding));
}

}  // namespace tessivox::ffmpeg
