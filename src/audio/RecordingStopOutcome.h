#pragma once

#include <filesystem>
#include <optional>
#include <variant>

namespace tessivox::audio {

/// The recording stands at the path.
struct Saved {
    std::filesystem::path url;
    double missingSeconds = 0;  ///< what could not be written while recording, silent or cut off in the file
};

/// Encoding failed. The raw audio was moved to the path; without a path it waits in the folder of temporary recordings.
struct ConversionFailed {
    std::optional<std::filesystem::path> rescuedPCM;
};

/// Nothing was recorded; no file exists.
struct Empty {};

using RecordingStopOutcome = std::variant<Saved, ConversionFailed, Empty>;

}  // namespace tessivox::audio
