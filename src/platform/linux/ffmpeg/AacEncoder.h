#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "audio/ports/PacketEncoder.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// FFmpeg's own AAC-LC encoder, opened for MPEG-4. Throws MediaError.
Codec openAac(const audio::AudioEncoding& encoding);

/// The same sound gives the same packets, in whatever pieces it comes.
class AacEncoder final : public audio::PacketEncoder {
public:
    explicit AacEncoder(const audio::AudioEncoding& encoding);

    void write(std::span<const float> interleaved, audio::AudioPackets& packets) override;
    void finish(audio::AudioPackets& packets) override;

private:
    void fillFrame(std::span<const float> interleaved, int frames);
    void encodeFilledFrame(audio::AudioPackets& packets);
    void encode(const AVFrame* frame, audio::AudioPackets& packets);

    Codec codec_;
    Frame frame_;
    Packet packet_;
    int filled_ = 0;          ///< frames waiting in frame_
    std::int64_t taken_ = 0;  ///< frames handed to the codec
};

/// AAC in .m4a files.
class AacEncoderFactory final : public audio::AudioEncoderFactory {
public:
    std::unique_ptr<audio::PacketEncoder> makeEncoder(const audio::AudioEncoding& encoding) override;
    std::unique_ptr<audio::PacketFile> makeFile(std::unique_ptr<base::File> file,
                                                const audio::AudioEncoding& encoding) override;
};

}  // namespace tessivox::ffmpeg
