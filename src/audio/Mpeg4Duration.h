#pragma once

#include <cstdint>
#include <optional>

#include "base/ports/Files.h"

namespace tessivox::audio {

/// How long a presentation is: duration / timescale seconds. The timescale is never 0.
struct Mpeg4Duration {
    std::uint64_t duration = 0;
    std::uint32_t timescale = 1;

    bool operator==(const Mpeg4Duration&) const = default;
};

/// Reads the duration from a file's movie header (ISO/IEC 14496-12: boxes 4.2, movie header 8.2.2). Absent if the file
/// is cut short, malformed, has no movie header or keeps its duration in fragments. Reads at most 256 bytes a box,
/// of boxes side by side at once, and at most some hundred boxes. Throws FileError if the file cannot be read.
std::optional<Mpeg4Duration> readMpeg4Duration(base::File& file);

}  // namespace tessivox::audio
