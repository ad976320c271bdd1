#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "platform/linux/ffmpeg/Libav.h"
#include "platform/linux/ffmpeg/SoundDecoder.h"

namespace tessivox::ffmpeg {

/// How sound is wanted.
struct SoundForm {
    int sampleRate = 0;  ///< frames per second; 0 = the file's own
    int channels = 0;    ///< 1 = all channels folded together, 2 = at most stereo, 0 = the file's own
};

/// Reads the sound of an m4a, mp3, wav, aiff or caf file from its beginning to its end, at any rate (libswresample with
/// soxr). What is damaged is silent; what is missing at the end is not there. Several channels are folded by their
/// places (a mean of left and right; a centre counts more, a deep-bass channel not at all), never above full scale.
/// One thread.
class SoundReader {
public:
    /// Throws MediaError if nothing can be decoded: with AVERROR_STREAM_NOT_FOUND if the file holds no sound,
    /// AVERROR_DECODER_NOT_FOUND if it is of a kind that cannot be decoded. Once `stop` is requested every operation
    /// throws MediaError with AVERROR_EXIT, also while it waits for the disk.
    explicit SoundReader(const std::filesystem::path& path, SoundForm wanted = {}, std::stop_token stop = {});

    int sampleRate() const { return sampleRate_; }
    int channels() const { return channels_; }
    /// Frames at this rate, as far as the file tells: less may come if it is damaged, and MP3 may be a little off.
    std::optional<std::uint64_t> frames() const;

    /// Fills the span with interleaved samples, full scale at +-1, as far as the sound reaches; returns frames, 0 at
    /// its end. The span holds whole frames.
    std::size_t read(std::span<float> interleaved);
    /// The same in whole numbers, rounded and limited to full scale.
    std::size_t read(std::span<std::int16_t> interleaved);

    /// False for MP3, whose frames are only found from its beginning.
    bool canSeek() const { return decoder_.canSeek(); }
    /// What is read next begins with this frame, and is as if read from the beginning. Throws MediaError.
    void seek(std::uint64_t frame);

private:
    SoundDecoder decoder_;
    int sampleRate_;
    int channels_;
    Resampler resampler_;             ///< absent before the first piece
    Frame form_;                      ///< format, rate and channels that the resampler takes
    std::vector<float> ready_;        ///< interleaved
    std::size_t taken_ = 0;           ///< samples of ready_ that were read
    std::uint64_t framesToDrop_ = 0;  ///< before what was sought
    std::vector<float> rounding_;     ///< what whole numbers are made of

    bool pull();
    void take(const SoundDecoder::Piece& piece);
    bool isOfForm(const AVFrame& frame) const;
    void beginForm(const AVFrame& frame);
    void convert(const std::uint8_t* const* planes, int count);
    void drain();
    void dropBeforeSought();
};

}  // namespace tessivox::ffmpeg
