#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <memory>

namespace tessivox::ffmpeg {

/// Frees what the libraries allocated; their free functions take the address of the pointer.
template <auto free>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const noexcept {
        free(&object);
    }
};

struct FreeFormat {
    void operator()(AVFormatContext* format) const noexcept { avformat_free_context(format); }
};

using Codec = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using Resampler = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;
/// A muxer; what it writes to is not part of it.
using OutputFormat = std::unique_ptr<AVFormatContext, FreeFormat>;

}  // namespace tessivox::ffmpeg
