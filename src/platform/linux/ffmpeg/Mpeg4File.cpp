#include "platform/linux/ffmpeg/Mpeg4File.h"

#include <algorithm>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotWrite = "The encoded sound could not be put into a file; try again";

}  // namespace

Mpeg4File::Mpeg4File(std::unique_ptr<base::File> file, const AVCodecContext& codec)
    : output_(std::move(file)), packet_(made(Packet(av_packet_alloc()))), position_(-codec.initial_padding) {
    begin(codec);
}

void Mpeg4File::begin(const AVCodecContext& codec) {
    AVFormatContext* format = nullptr;
    // Without a name of this ending the muxer warns that not everybody will play the file.
    check(avformat_alloc_output_context2(&format, nullptr, "ipod", "sound.m4a"), kCannotWrite);
    format_.reset(format);
    format_->pb = output_.context();
    format_->flags |= AVFMT_FLAG_BITEXACT;
    // Write when the buffer is full, not after each of some 47 packets a second.
    format_->flush_packets = 0;
    AVStream* stream = made(avformat_new_stream(format, nullptr));
    stream->time_base = codec.time_base;
    check(avcodec_parameters_from_context(stream->codecpar, &codec), kOutOfMemory);
    // The edit list counts in the movie's time scale: by default milliseconds, which cannot tell the last frame.
    check(av_opt_set_int(format_->priv_data, "movie_timescale", codec.sample_rate, 0), kCannotWrite);
    checkMuxed(avformat_write_header(format, nullptr));
}

void Mpeg4File::write(const audio::AudioPackets& packets) {
    const auto* bytes = packets.bytes.data();
    for (const auto& [size, frames] : packets.packets) {
        // The muxer copies what it keeps, and does not write to what it is given.
        packet_->data = reinterpret_cast<std::uint8_t*>(const_cast<std::byte*>(bytes));
        packet_->size = static_cast<int>(size);
        packet_->pts = packet_->dts = position_;
        packet_->duration = frames;
        packet_->flags = AV_PKT_FLAG_KEY;
        bytes += size;
        position_ += frames;
        const int result = av_write_frame(format_.get(), packet_.get());
        av_packet_unref(packet_.get());
        checkMuxed(result);
    }
}

std::uint64_t Mpeg4File::finish() {
    checkMuxed(av_write_trailer(format_.get()));
    output_.close();
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, position_));
}

void Mpeg4File::checkMuxed(int result) const {
    output_.rethrowFailure();
    check(result, kCannotWrite);
}

}  // namespace tessivox::ffmpeg
