#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// An opened container of sound: MPEG-4, MP3, WAV, AIFF or CAF. Nothing else is taken for sound, whatever it is called,
/// and nothing that the file names is opened or fetched.
class MediaInput {
public:
    /// `isOver` is asked again and again; once it says so, whatever reads from the input fails with AVERROR_EXIT.
    /// Throws MediaError.
    MediaInput(const std::filesystem::path& path, std::function<bool()> isOver);
    MediaInput(const MediaInput&) = delete;
    MediaInput& operator=(const MediaInput&) = delete;

    AVFormatContext* get() const { return context_.get(); }
    AVFormatContext* operator->() const { return context_.get(); }
    /// The first stream of sound; null if there is none.
    AVStream* firstSound() const;

private:
    struct Close {
        void operator()(AVFormatContext* input) const noexcept { avformat_close_input(&input); }
    };
    std::function<bool()> isOver_;
    std::unique_ptr<AVFormatContext, Close> context_;
};

}  // namespace tessivox::ffmpeg
