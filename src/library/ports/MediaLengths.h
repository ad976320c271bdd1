#pragma once

#include <filesystem>
#include <optional>

namespace tessivox::library {

/// A media library's word on a file whose length does not stand in its header.
class MediaLengths {
public:
    virtual ~MediaLengths() = default;
    /// Seconds; absent if the file is none that can be played, or does not tell in a few seconds. Never throws. Any
    /// thread.
    virtual std::optional<double> seconds(const std::filesystem::path& path) const = 0;
};

}  // namespace tessivox::library
