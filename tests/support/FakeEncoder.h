#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "audio/ports/AudioConverter.h"
#include "audio/ports/PacketEncoder.h"

namespace tessivox::testing {

/// An "encoder" whose packets, and whose file, hold the samples as they are, so that tests can read back what a
/// recording holds. It can be told to fail. Any thread; told one at a time.
class FakeEncoder final : public audio::AudioEncoderFactory {
public:
    /// From now on beginning files fails for files of that many channels; 0 for none.
    int refusedChannels = 0;
    /// The sample that no encoder takes.
    float refusedSample = std::numeric_limits<float>::infinity();
    /// Frames by which finished files are short of what was written.
    std::uint64_t missingFrames = 0;
    /// The files begun.
    std::vector<audio::AudioEncoding> opened;
    std::atomic<int> encoders = 0;

    std::unique_ptr<audio::PacketEncoder> makeEncoder(const audio::AudioEncoding& encoding) override;
    std::unique_ptr<audio::PacketFile> makeFile(std::unique_ptr<base::File> file,
                                                const audio::AudioEncoding& encoding) override;

    /// The samples of a finished file, interleaved. Throws base::Error if it was not finished.
    static std::vector<float> samplesOf(base::Files& files, const std::filesystem::path& path);
};

/// Converts by repeating or leaving out samples: enough where only placing matters.
class FakeConverter final : public audio::AudioConverterFactory {
public:
    int made = 0;
    int resets = 0;
    std::unique_ptr<audio::AudioConverter> make(const audio::AudioFormat& input, double outputRate) override;
};

}  // namespace tessivox::testing
