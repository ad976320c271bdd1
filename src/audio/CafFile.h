#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "audio/AudioBuffer.h"
#include "base/ports/Files.h"

namespace tessivox::audio {

/// Writes interleaved 32-bit float PCM into a Core Audio Format file (Apple, "Core Audio Format Specification 1.0")
/// that can be read after a crash at any moment: an 80-byte header comes first, and the size of the audio is put right
/// after every piece. A frame always stands at the offset that its number says, and a write torn at a page's end, as a
/// kill leaves it, ends with a whole frame of one or two channels. One thread at a time.
class CafWriter {
public:
    static constexpr std::uint64_t kHeaderSize = 80;

    /// Writes the header into an empty file. Throws base::FileError.
    CafWriter(std::unique_ptr<base::File> file, const AudioFormat& format);

    /// Writes frames to their place; frames left out before it read as silence. After a failure (base::FileError) the
    /// file ends with the last whole frame that is there and is still well-formed.
    void write(std::uint64_t firstFrame, std::span<const float> interleaved);

    /// Frames that the file covers.
    std::uint64_t frames() const { return frames_; }
    base::File& file() { return *file_; }

private:
    std::unique_ptr<base::File> file_;
    std::uint64_t frameBytes_;
    std::uint64_t frames_ = 0;

    void writeSize();
    void cutToWholeFrames();
};

/// Reads such a file, whatever a crash has left of it: the declared size may be too large, too small, zero or unknown,
/// and the file may end anywhere.
class CafReader {
public:
    /// Throws base::Error if this is not such a file (or shorter than its header), base::FileError if it cannot be
    /// read.
    explicit CafReader(std::unique_ptr<base::File> file);

    const AudioFormat& format() const { return format_; }
    /// Whole frames that can be read.
    std::uint64_t frames() const { return frames_; }
    /// Fills the span with interleaved samples from a frame on; returns the number of frames read.
    std::size_t read(std::uint64_t firstFrame, std::span<float> interleaved);

private:
    std::unique_ptr<base::File> file_;
    AudioFormat format_;
    std::uint64_t frameBytes_ = 0;
    std::uint64_t frames_ = 0;
};

}  // namespace tessivox::audio
