#pragma once

#include <memory>
#include <vector>

#include "audio/AudioBuffer.h"

namespace tessivox::audio {

/// Turns buffers of one format into mono at another rate, for live use: each buffer gives about its own length at once,
/// with a small constant lag. One thread.
class AudioConverter {
public:
    virtual ~AudioConverter() = default;
    /// Replaces `output` by the mono samples of the buffer; none if the buffer gave none yet. No allocation once
    /// `output` has grown to the usual size. Throws base::Error if the audio cannot be converted.
    virtual void convert(std::span<const float> samples, std::vector<float>& output) = 0;
    /// Forgets what is still in the filter, as if newly made.
    virtual void reset() = 0;
};

class AudioConverterFactory {
public:
    virtual ~AudioConverterFactory() = default;
    /// Throws base::Error if there is no conversion. Any thread.
    virtual std::unique_ptr<AudioConverter> make(const AudioFormat& input, double outputRate) = 0;
};

}  // namespace tessivox::audio
