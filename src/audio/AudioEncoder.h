#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "audio/ports/PacketEncoder.h"

namespace tessivox::audio {

/// Encodes a stream into one open file: samples, or packets that were encoded elsewhere, but not both. One thread at a
/// time. Any failure throws base::Error and leaves the encoder unusable; destroying an unfinished one closes the file
/// as it is, unplayable.
class AudioEncoder {
public:
    /// `file` is empty and open for update; the factory outlives the encoder.
    AudioEncoder(AudioEncoderFactory& factory, std::unique_ptr<base::File> file, const AudioEncoding& encoding);

    /// Takes interleaved samples, frames x channels, any number.
    void write(std::span<const float> interleaved);
    /// Takes the next packets.
    void add(const AudioPackets& packets);
    /// Writes what is left and the index, syncs the file and closes it. Returns the frames that a player gets from it.
    std::uint64_t finish();

private:
    AudioEncoderFactory& factory_;
    AudioEncoding encoding_;
    std::unique_ptr<PacketFile> file_;
    std::unique_ptr<PacketEncoder> encoder_;  ///< once there are samples
    AudioPackets packets_;                    ///< on their way to the file
    bool isUsable_ = true;                    ///< neither failed nor finished

    void beginUse();
};

}  // namespace tessivox::audio
