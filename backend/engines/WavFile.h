#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "base/ports/Files.h"

namespace tessivox::backend {

/// The bytes before the samples of a WAV file of one channel of 16 bits at Sound::kSampleRate (RIFF/WAVE, "fmt " with
/// WAVE_FORMAT_PCM). Throws EngineError if that many samples do not fit a WAV file, 4 GiB.
std::string wavHeader(std::uint64_t samples);

/// The whole file as text, for sending.
std::string wavBytes(std::span<const std::int16_t> samples);

/// Makes a new file, readable by this user alone. Throws base::FileError, also if anything has that name.
void writeWavFile(const std::filesystem::path& path, std::span<const std::int16_t> samples);

/// How the samples lie in a WAV file.
struct WavLayout {
    int channels = 0;
    std::uint32_t sampleRate = 0;  ///< Hz
    int bitsPerSample = 0;
    std::uint64_t dataOffset = 0;
    std::uint64_t dataSize = 0;  ///< bytes that are there, in whole frames, whatever the header promises
};

/// Absent unless the file is a WAV file of whole-number samples whose header agrees with itself. Throws
/// base::FileError.
std::optional<WavLayout> readWavLayout(base::File& file);

}  // namespace tessivox::backend
