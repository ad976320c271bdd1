#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "audio/ports/AudioConverter.h"

namespace tessivox::audio {

/// Turns one source's buffers into mono at the recording's rate. A source that changes its format in mid-recording gets
/// a new converter. One thread at a time.
class MonoMixer {
public:
    MonoMixer(AudioConverterFactory& converters, double outputRate)
        : converters_(converters), outputRate_(outputRate) {}

    /// The mono samples, valid until the next call; empty if the buffer gives none, or cannot be converted.
    std::span<const float> mix(const AudioBuffer& buffer);
    /// Lets no state of the converter cross a pause.
    void reset();

private:
    AudioConverterFactory& converters_;
    double outputRate_;
    std::unique_ptr<AudioConverter> converter_;
    std::optional<AudioFormat> converterFormat_;
    std::vector<float> mono_;

    std::span<const float> convert(const AudioBuffer& buffer);
};

}  // namespace tessivox::audio
