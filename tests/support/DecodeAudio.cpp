#include "support/DecodeAudio.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tessivox::testing {
namespace {

template <auto free>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const noexcept {
        free(&object);
    }
};

using Input = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using Codec = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using Interleaver = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;

int check(int result, const char* step) {
    if (result >= 0) return result;
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, reason, sizeof reason);
    throw std::runtime_error(std::string(step) + ": " + reason);
}

/// Bytes in memory as the demuxer reads them.
class MemoryInput {
public:
    explicit MemoryInput(std::span<const std::byte> bytes) : bytes_(bytes) {
        constexpr int kBufferSize = 4096;
        auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
        context_ = avio_alloc_context(buffer, kBufferSize, 0, this, read, nullptr, seek);
    }
    MemoryInput(const MemoryInput&) = delete;
    MemoryInput& operator=(const MemoryInput&) = delete;
    ~MemoryInput() {
        av_freep(&context_->buffer);
        avio_context_free(&context_);
    }
    AVIOContext* context() { return context_; }

private:
    static int read(void* self, std::uint8_t* to, int size) {
        auto& input = *static_cast<MemoryInput*>(self);
        const auto count = std::min(static_cast<std::size_t>(size), input.bytes_.size() - input.position_);
        if (count == 0) return AVERROR_EOF;
        std::memcpy(to, input.bytes_.data() + input.position_, count);
        input.position_ += count;
        return static_cast<int>(count);
    }
    static std::int64_t seek(void* self, std::int64_t offset, int whence) {
        auto& input = *static_cast<MemoryInput*>(self);
        if (whence == AVSEEK_SIZE) return static_cast<std::int64_t>(input.bytes_.size());
        if (whence != SEEK_SET || offset < 0) return AVERROR(EINVAL);
        input.position_ = std::min(static_cast<std::size_t>(offset), input.bytes_.size());
        return offset;
    }

    std::span<const std::byte> bytes_;
    std::size_t position_ = 0;
    AVIOContext* context_ = nullptr;
};

class Decoding {
public:
    explicit Decoding(AVFormatContext& input) : input_(input) {
        check(avformat_find_stream_info(&input_, nullptr), "find streams");
        const AVCodec* decoder = nullptr;
        stream_ = check(av_find_best_stream(&input_, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0), "find audio");
        codec_.reset(avcodec_alloc_context3(decoder));
        check(avcodec_parameters_to_context(codec_.get(), stream().codecpar), "copy parameters");
        codec_->pkt_timebase = stream().time_base;
        check(avcodec_open2(codec_.get(), decoder, nullptr), "open decoder");
        sound_.sampleRate = codec_->sample_rate;
        sound_.channels = codec_->ch_layout.nb_channels;
    }

    DecodedAudio run() {
        int result = 0;
        while ((result = av_read_frame(&input_, packet_.get())) >= 0) {
            if (packet_->stream_index == stream_) decode(packet_.get());
            av_packet_unref(packet_.get());
        }
        if (result != AVERROR_EOF) check(result, "read");
        decode(nullptr);
        trimToEditList();
        return std::move(sound_);
    }

private:
    const AVStream& stream() const { return *input_.streams[stream_]; }

    void decode(const AVPacket* packet) {
        check(avcodec_send_packet(codec_.get(), packet), "decode");
        int result = 0;
        while ((result = avcodec_receive_frame(codec_.get(), frame_.get())) >= 0) append();
        if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) check(result, "decode");
    }

    void append() {
        if (!interleaver_) openInterleaver();
        const auto before = sound_.samples.size();
        sound_.samples.resize(before + static_cast<std::size_t>(frame_->nb_samples * sound_.channels));
        auto* to = reinterpret_cast<std::uint8_t*>(sound_.samples.data() + before);
        auto** from = const_cast<const std::uint8_t**>(frame_->extended_data);
        check(swr_convert(interleaver_.get(), &to, frame_->nb_samples, from, frame_->nb_samples), "interleave");
    }

    /// The library skips what the edit list leaves out at the start, but gives the last packet whole.
    void trimToEditList() {
        const bool isMpeg4 = std::string_view(input_.iformat->name).starts_with("mov");
        if (!isMpeg4 || stream().duration == AV_NOPTS_VALUE) return;
        const auto frames = av_rescale_q(stream().duration, stream().time_base, {1, sound_.sampleRate});
        const auto samples = static_cast<std::size_t>(frames * sound_.channels);
        sound_.samples.resize(std::min(sound_.samples.size(), samples));
    }

    void openInterleaver() {
        SwrContext* context = nullptr;
        auto* layout = &codec_->ch_layout;
        const int rate = codec_->sample_rate;
        const auto format = static_cast<AVSampleFormat>(frame_->format);
        check(swr_alloc_set_opts2(&context, layout, AV_SAMPLE_FMT_FLT, rate, layout, format, rate, 0, nullptr),
              "set up interleaving");
        interleaver_.reset(context);
        check(swr_init(context), "start interleaving");
    }

    AVFormatContext& input_;
    int stream_ = -1;
    Codec codec_;
    Frame frame_{av_frame_alloc()};
    Packet packet_{av_packet_alloc()};
    Interleaver interleaver_;
    DecodedAudio sound_;
};

DecodedAudio decodeOpened(AVFormatContext* format, const char* name) {
    check(avformat_open_input(&format, name, nullptr, nullptr), "open");
    const Input input(format);
    return Decoding(*input).run();
}

}  // namespace

std::vector<float> DecodedAudio::channel(int index) const {
    std::vector<float> values;
    values.reserve(frames());
    for (auto i = static_cast<std::size_t>(index); i < samples.size(); i += static_cast<std::size_t>(channels)) {
        values.push_back(samples[i]);
    }
    return values;
}

DecodedAudio decodeAudio(const std::filesystem::path& path) { return decodeOpened(nullptr, path.c_str()); }

DecodedAudio decodeAudio(std::span<const std::byte> contents) {
    MemoryInput input(contents);
    AVFormatContext* format = avformat_alloc_context();
    format->pb = input.context();
    return decodeOpened(format, nullptr);
}

}  // namespace tessivox::testing
