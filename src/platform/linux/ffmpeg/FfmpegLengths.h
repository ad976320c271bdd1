#pragma once

#include "library/ports/MediaLengths.h"

namespace tessivox::ffmpeg {

/// Asks FFmpeg's demuxers, those of sound files only, and gives up after two seconds.
class FfmpegLengths final : public library::MediaLengths {
public:
    std::optional<double> seconds(const std::filesystem::path& path) const override;
};

}  // namespace tessivox::ffmpeg
