#include "platform/linux/ffmpeg/SoundDecoder.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kNoSound = "No audio track in source file";
constexpr const char* kUnknownCodec = "The sound in this file is of a kind that cannot be decoded; convert it first";
constexpr const char* kNothingDecoded = "Nothing in this file could be decoded; it is damaged or empty";
constexpr const char* kCannotSeek = "The file could not be read from the middle; it may be damaged";
constexpr const char* kInterrupted = "The reading was interrupted";

/// So often in a row reading may fail before the rest counts as lost.
constexpr int kReadFailures = 20;
/// Silence is made in pieces of this many frames.
constexpr int kSilentFrames = 4096;
/// Sound is missing from this part of a second on. No packet is as short, and no rounding as coarse.
constexpr int kTolerancePart = 200;
/// Decoders settle within two or three packets, of at most 2048 frames.
constexpr std::int64_t kSettlingFrames = 4 * 2048;

bool isMpeg4(const AVFormatContext& input) { return std::string_view(input.iformat->name).starts_with("mov"); }

}  // namespace

SoundDecoder::SoundDecoder(const std::filesystem::path& path, std::stop_token stop)
    : stop_(std::move(stop)),
      input_(path, [stop = stop_] { return stop.stop_requested(); }),
      frame_(made(Frame(av_frame_alloc()))),
      packet_(made(Packet(av_packet_alloc()))) {
    openStream();
    openCodec();
    if (!receiveFrame()) check(AVERROR_INVALIDDATA, kNothingDecoded);
    beginTime();
    place();
}

void SoundDecoder::openStream() {
    const int result = avformat_find_stream_info(input_.get(), nullptr);
    throwIfStopped();
    stream_ = input_.firstSound();
    if (!stream_) check(AVERROR_STREAM_NOT_FOUND, kNoSound);
    check(result, kNothingDecoded);
    for (unsigned index = 0; index < input_->nb_streams; ++index) {
        auto* stream = input_->streams[index];
        if (stream != stream_) stream->discard = AVDISCARD_ALL;
    }
}

void SoundDecoder::openCodec() {
    const AVCodec* decoder = avcodec_find_decoder(stream_->codecpar->codec_id);
    if (!decoder) check(AVERROR_DECODER_NOT_FOUND, kUnknownCodec);
    codec_ = made(Codec(avcodec_alloc_context3(decoder)));
    check(avcodec_parameters_to_context(codec_.get(), stream_->codecpar), kUnknownCodec);
    codec_->pkt_timebase = stream_->time_base;
    check(avcodec_open2(codec_.get(), decoder, nullptr), kUnknownCodec);
}

void SoundDecoder::throwIfStopped() const {
    if (stop_.stop_requested()) check(AVERROR_EXIT, kInterrupted);
}

void SoundDecoder::beginTime() {
    rate_ = frame_->sample_rate;
    channels_ = frame_->ch_layout.nb_channels;
    if (rate_ < 1 || channels_ < 1) check(AVERROR_INVALIDDATA, kNothingDecoded);
    if (stream_->start_time != AV_NOPTS_VALUE) {
        origin_ = stream_->start_time;
    } else if (frame_->pts != AV_NOPTS_VALUE) {
        origin_ = frame_->pts;
    }
}

std::int64_t SoundDecoder::toFrames(std::int64_t time) const {
    return av_rescale_q(time, stream_->time_base, {1, rate_});
}

std::optional<std::int64_t> SoundDecoder::frames() const {
    if (stream_->duration == AV_NOPTS_VALUE || stream_->duration <= 0) return std::nullopt;
    return toFrames(stream_->duration);
}

bool SoundDecoder::next(Piece& piece) {
    while (!isOver_) {
        throwIfStopped();
        if (!isAtHand_) {
            isOver_ = !receiveFrame();
            if (isOver_) break;
            place();
        }
        piece = missing_ > 0 ? silentPiece() : pieceAtHand();
        if (piece.count > 0) return true;
    }
    return false;
}

/// Where the frame just received belongs. Within the run times are only looked at for what is missing: they are
/// rounded, and some writers' are wrong.
void SoundDecoder::place() {
    isAtHand_ = true;
    missing_ = 0;
    skipped_ = 0;
    const auto place = frame_->pts == AV_NOPTS_VALUE ? position_ : toFrames(frame_->pts - origin_);
    if (isSearching_ && place < position_) {
        skipped_ = static_cast<int>(std::min<std::int64_t>(frame_->nb_samples, position_ - place));
        isSearching_ = skipped_ == frame_->nb_samples;
        return;
    }
    const auto tolerance = isSearching_ ? 0 : rate_ / kTolerancePart;
    isSearching_ = false;
    const auto length = frames();
    if (place > position_ + tolerance && length && place < *length) missing_ = place - position_;
}

/// How many frames may still come. The library leaves out what an edit list cuts off at the start, but decodes the last
/// packet whole.
std::int64_t SoundDecoder::room() const {
    const auto length = isMpeg4(*input_.get()) ? frames() : std::nullopt;
    return length ? *length - position_ : std::numeric_limits<std::int64_t>::max();
}

SoundDecoder::Piece SoundDecoder::pieceAtHand() {
    isAtHand_ = false;
    if (room() <= 0) isOver_ = true;
    const auto left = std::min<std::int64_t>(frame_->nb_samples - skipped_, room());
    const Piece piece{frame_.get(), skipped_, static_cast<int>(std::max<std::int64_t>(0, left))};
    // A damaged stream may change its rate on the way.
    position_ += av_rescale(piece.count, rate_, std::max(1, frame_->sample_rate));
    return piece;
}

SoundDecoder::Piece SoundDecoder::silentPiece() {
    const int count = static_cast<int>(std::min<std::int64_t>(missing_, kSilentFrames));
    silence_ = made(Frame(av_frame_alloc()));
    silence_->format = frame_->format;
    silence_->sample_rate = rate_;
    silence_->nb_samples = count;
    check(av_channel_layout_copy(&silence_->ch_layout, &frame_->ch_layout), kOutOfMemory);
    check(av_frame_get_buffer(silence_.get(), 0), kOutOfMemory);
    const auto format = static_cast<AVSampleFormat>(silence_->format);
    check(av_samples_set_silence(silence_->extended_data, 0, count, silence_->ch_layout.nb_channels, format),
          kOutOfMemory);
    missing_ -= count;
    position_ += count;
    return {silence_.get(), 0, count};
}

/// Goes over what cannot be decoded. False at the end.
bool SoundDecoder::receiveFrame() {
    while (true) {
        throwIfStopped();
        const int result = avcodec_receive_frame(codec_.get(), frame_.get());
        if (result >= 0) return true;
        if (result == AVERROR_EOF) return false;
        if (result == AVERROR(EAGAIN)) feedCodec();
    }
}

void SoundDecoder::feedCodec() {
    const bool isPacket = readPacket();
    // What the codec does not like comes out as nothing.
    static_cast<void>(avcodec_send_packet(codec_.get(), isPacket ? packet_.get() : nullptr));
    av_packet_unref(packet_.get());
}

bool SoundDecoder::readPacket() {
    for (int failures = 0; failures < kReadFailures;) {
        throwIfStopped();
        const int result = av_read_frame(input_.get(), packet_.get());
        if (result == AVERROR_EOF) return false;
        if (result < 0) {
            ++failures;
        } else if (packet_->stream_index == stream_->index) {
            return true;
        } else {
            av_packet_unref(packet_.get());
        }
    }
    return false;
}

bool SoundDecoder::canSeek() const { return std::string_view(input_->iformat->name) != "mp3"; }

void SoundDecoder::seek(std::int64_t frame) {
    const auto from = std::max<std::int64_t>(0, frame - kSettlingFrames);
    const auto time = origin_ + av_rescale_q(from, {1, rate_}, stream_->time_base);
    check(av_seek_frame(input_.get(), stream_->index, time, AVSEEK_FLAG_BACKWARD), kCannotSeek);
    avcodec_flush_buffers(codec_.get());
    position_ = frame;
    missing_ = 0;
    isAtHand_ = isOver_ = false;
    isSearching_ = true;
}

}  // namespace tessivox::ffmpeg
