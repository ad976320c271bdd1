#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>

#include "platform/linux/ffmpeg/Libav.h"
#include "platform/linux/ffmpeg/MediaInput.h"

namespace tessivox::ffmpeg {

/// The first sound of a file, decoded from its beginning to its end without a gap: what cannot be decoded in between is
/// silence, as far as the file's times tell how much there was; priming and what an edit list leaves out is not there.
/// One thread.
class SoundDecoder {
public:
    /// Some of a decoded frame's samples; they last until the next call.
    struct Piece {
        const AVFrame* frame = nullptr;
        int first = 0;
        int count = 0;
    };

    /// Decodes the beginning. Throws MediaError: AVERROR_STREAM_NOT_FOUND if the file holds no sound,
    /// AVERROR_DECODER_NOT_FOUND if it is of a kind that cannot be decoded, AVERROR_EXIT when stopped.
    SoundDecoder(const std::filesystem::path& path, std::stop_token stop);

    /// False at the end. Throws MediaError (AVERROR_EXIT) when stopped.
    bool next(Piece& piece);

    int sampleRate() const { return rate_; }
    int channels() const { return channels_; }
    /// What the file says of its length, in frames at its own rate.
    std::optional<std::int64_t> frames() const;
    /// Whether seek() finds frames by their number; else it would be a guess.
    bool canSeek() const;
    /// The next piece begins with this frame, counted at the file's own rate. Throws MediaError.
    void seek(std::int64_t frame);

private:
    std::stop_token stop_;
    MediaInput input_;
    AVStream* stream_ = nullptr;
    Codec codec_;
    Frame frame_;
    Frame silence_;
    Packet packet_;
    int rate_ = 0;
    int channels_ = 0;
    std::int64_t origin_ = 0;    ///< the time of frame 0, in the stream's units
    std::int64_t position_ = 0;  ///< the frame that comes next
    std::int64_t missing_ = 0;   ///< frames of silence before the frame at hand
    int skipped_ = 0;            ///< samples of the frame at hand that are before the position
    bool isAtHand_ = false;      ///< frame_ was not handed out yet
    bool isSearching_ = true;    ///< for the position; until then only the file's times count
    bool isOver_ = false;

    void openStream();
    void openCodec();
    void beginTime();
    bool receiveFrame();
    void feedCodec();
    bool readPacket();
    void throwIfStopped() const;
    void place();
    std::int64_t room() const;
    std::int64_t toFrames(std::int64_t time) const;
    Piece silentPiece();
    Piece pieceAtHand();
};

}  // namespace tessivox::ffmpeg
