#pragma once

#include <cstdint>
#include <memory>

#include "audio/ports/PacketEncoder.h"
#include "platform/linux/ffmpeg/FileOutput.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// An .m4a whose index stands at the end. The encoder's priming is declared by an edit list (ISO/IEC 14496-12, 8.6.6),
/// so that players give back exactly the frames that were encoded. The same packets give the same bytes.
class Mpeg4File final : public audio::PacketFile {
public:
    /// For packets of encoders like `codec`, which is only looked at. Throws MediaError, base::FileError.
    Mpeg4File(std::unique_ptr<base::File> file, const AVCodecContext& codec);

    void write(const audio::AudioPackets& packets) override;
    std::uint64_t finish() override;

private:
    void begin(const AVCodecContext& codec);
    void checkMuxed(int result) const;

    FileOutput output_;
    OutputFormat format_;
    Packet packet_;
    std::int64_t position_;  ///< time of the next packet in frames; what lies before 0 is priming
};

}  // namespace tessivox::ffmpeg
