#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "base/ports/Files.h"

namespace tessivox::audio {

/// What an encoded file is to be: AAC-LC in MPEG-4 (ISO/IEC 14496-3 and -14).
struct AudioEncoding {
    int sampleRate = 48000;
    int channels = 2;
    int bitrate = 128000;  ///< bits per second, all channels together
};

/// Encodes a stream into one open file. One thread at a time. Any failure throws base::Error and leaves the encoder
/// unusable; destroying an unfinished one closes the file as it is, unplayable.
class AudioEncoder {
public:
    virtual ~AudioEncoder() = default;
    /// Takes interleaved samples, frames x channels, any number.
    virtual void write(std::span<const float> interleaved) = 0;
    /// Writes what is left and the index, syncs the file and closes it. Returns the frames that a player gets from it.
    virtual std::uint64_t finish() = 0;
};

class AudioEncoderFactory {
public:
    virtual ~AudioEncoderFactory() = default;
    /// Begins a file in `file`, which is empty and open for update. Throws base::Error. Any thread.
    virtual std::unique_ptr<AudioEncoder> open(std::unique_ptr<base::File> file, const AudioEncoding& encoding) = 0;
};

}  // namespace tessivox::audio
