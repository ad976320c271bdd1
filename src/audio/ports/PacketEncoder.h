#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::audio {

/// What an encoded file is to be: AAC-LC in MPEG-4 (ISO/IEC 14496-3 and -14).
struct AudioEncoding {
    int sampleRate = 48000;
    int channels = 2;
    int bitrate = 128000;  ///< bits per second, all channels together
};

/// Encoded sound in the order of its packets.
struct AudioPackets {
    struct Packet {
        std::uint32_t size = 0;    ///< bytes
        std::uint32_t frames = 0;  ///< that it stands for
    };
    std::vector<Packet> packets;
    std::vector<std::byte> bytes;  ///< of all packets, one after the other

    void append(std::span<const std::byte> packet, std::uint32_t frames) {
        packets.push_back({static_cast<std::uint32_t>(packet.size()), frames});
        bytes.insert(bytes.end(), packet.begin(), packet.end());
    }
    void clear() {
        packets.clear();
        bytes.clear();
    }
};

/// Turns a stream of samples into packets. Packet number n stands for the kPacketFrames frames that end with frame
/// n * kPacketFrames: the first one primes the decoder and is not heard. It is there as soon as the frames of two
/// further packets are written. One thread at a time. A failure throws base::Error and leaves the encoder unusable.
class PacketEncoder {
public:
    static constexpr std::uint64_t kPacketFrames = 1024;

    virtual ~PacketEncoder() = default;
    /// Takes interleaved samples, frames x channels, any number, and appends the packets that are ready.
    virtual void write(std::span<const float> interleaved, AudioPackets& packets) = 0;
    /// Appends what is left; the last packet stands for the frames that remained. Nothing was written: nothing comes.
    virtual void finish(AudioPackets& packets) = 0;
};

/// A file that packets become, the decoder's priming declared so that players give back the frames alone. One thread at
/// a time. A failure throws base::Error and leaves it unusable; destroying an unfinished one closes the file as it is,
/// unplayable.
class PacketFile {
public:
    virtual ~PacketFile() = default;
    /// Takes the next packets; the first of all is the priming one.
    virtual void write(const AudioPackets& packets) = 0;
    /// Writes the index, syncs the file and closes it. Returns the frames that a player gets from it.
    virtual std::uint64_t finish() = 0;
};

class AudioEncoderFactory {
public:
    virtual ~AudioEncoderFactory() = default;
    /// Throws base::Error. Any thread.
    virtual std::unique_ptr<PacketEncoder> makeEncoder(const AudioEncoding& encoding) = 0;
    /// Begins a file in `file`, which is empty and open for update, for packets of such an encoder. Throws base::Error.
    /// Any thread.
    virtual std::unique_ptr<PacketFile> makeFile(std::unique_ptr<base::File> file, const AudioEncoding& encoding) = 0;
};

}  // namespace tessivox::audio
