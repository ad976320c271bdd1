#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>

#include "audio/ports/PacketEncoder.h"

namespace tessivox::library {

/// Makes .m4a files of other sound files.
class AudioConversion {
public:
    virtual ~AudioConversion() = default;
    /// Encodes the sound of `source` into the file at `target`, which is there and is overwritten; when it returns,
    /// that is on the disk. `form` tells the most channels: a source with fewer keeps them, and they get their share of
    /// the bits. `progress` is called on the same thread with the share done, from 0 to 1. Returns the seconds of sound
    /// written. What is damaged is silent; base::Error is thrown if nothing can be decoded or not all can be written,
    /// and when stopped. Any thread.
    virtual double convertToM4A(const std::filesystem::path& source, const std::filesystem::path& target,
                                const audio::AudioEncoding& form, const std::function<void(double)>& progress,
                                const std::stop_token& stop) = 0;
};

}  // namespace tessivox::library
