#pragma once

#include <cstddef>
#include <span>

#include "base/Units.h"

namespace tessivox::audio {

/// The form of 32-bit float PCM, interleaved, full scale at +-1.
struct AudioFormat {
    double sampleRate = 48000;  ///< frames per second
    int channels = 1;

    bool operator==(const AudioFormat&) const = default;
};

/// A view of captured audio; the samples belong to whoever hands it over, for the length of the call.
struct AudioBuffer {
    AudioFormat format;
    std::span<const float> samples;  ///< frames x channels, interleaved

    std::size_t frames() const { return samples.size() / static_cast<std::size_t>(format.channels); }
    base::Duration duration() const { return base::fromSeconds(static_cast<double>(frames()) / format.sampleRate); }
};

}  // namespace tessivox::audio
