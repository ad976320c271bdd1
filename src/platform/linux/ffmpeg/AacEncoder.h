#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "audio/ports/AudioEncoder.h"
#include "platform/linux/ffmpeg/FileOutput.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// AAC-LC in an .m4a whose index stands at the end. The encoder's priming is declared by an edit list (ISO/IEC
/// 14496-12, 8.6.6), so that players give back exactly the frames that were written. The same sound gives the same
/// bytes.
class AacEncoder final : public audio::AudioEncoder {
public:
    AacEncoder(std::unique_ptr<base::File> file, const audio::AudioEncoding& encoding);

    void write(std::span<const float> interleaved) override;
    std::uint64_t finish() override;

private:
    void openCodec(const audio::AudioEncoding& encoding);
    void openMuxer();
    void beginUse();
    void fillFrame(std::span<const float> interleaved, int frames);
    void encode(const AVFrame* frame);
    void encodeFilledFrame();
    void mux();
    std::uint64_t playableFrames() const;

    FileOutput output_;
    Codec codec_;
    OutputFormat format_;
    Frame frame_;
    Packet packet_;
    int filled_ = 0;                ///< frames waiting in frame_
    std::int64_t taken_ = 0;        ///< frames handed to the codec
    std::int64_t muxedFrames_ = 0;  ///< frames that the packets in the file stand for, with the priming
    bool isUsable_ = true;          ///< neither failed nor finished
};

class AacEncoderFactory final : public audio::AudioEncoderFactory {
public:
    std::unique_ptr<audio::AudioEncoder> open(std::unique_ptr<base::File> file,
                                              const audio::AudioEncoding& encoding) override;
};

}  // namespace tessivox::ffmpeg
