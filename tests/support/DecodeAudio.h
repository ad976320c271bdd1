#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <vector>

namespace tessivox::testing {

/// Sound as a player gets it, full scale at +-1.
struct DecodedAudio {
    int sampleRate = 0;
    int channels = 0;
    std::vector<float> samples;  ///< frames x channels, interleaved

    std::size_t frames() const { return channels > 0 ? samples.size() / static_cast<std::size_t>(channels) : 0; }
    std::vector<float> channel(int index) const;
};

/// Decodes the first audio stream of a file in any form that FFmpeg knows, edit list heeded. Throws std::runtime_error
/// if it cannot be read to its end.
DecodedAudio decodeAudio(const std::filesystem::path& path);
DecodedAudio decodeAudio(std::span<const std::byte> contents);

}  // namespace tessivox::testing
