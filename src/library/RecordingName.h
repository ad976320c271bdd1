#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/Error.h"

namespace tessivox::library {

inline constexpr std::string_view kAudioExtension = ".m4a";
inline constexpr std::string_view kMicrophoneSuffix = "_mic";
inline constexpr std::string_view kSystemSuffix = "_system";
/// What stands beside `<base>.m4a`: the transcript and the summary.
inline constexpr std::array<std::string_view, 2> kSidecarExtensions{".txt", ".summary.txt"};

/// A name that no recording can have. domain() is "library".
class RecordingNameError : public base::Error {
public:
    explicit RecordingNameError(std::string description) : Error("library", 1, std::move(description)) {}
};

/// The title that a file name without extension stands for: without a leading time stamp, and with hyphens for spaces
/// if it has none. Absent if nothing is left, or if it is not UTF-8.
std::optional<std::string> titleFromBaseName(std::string_view name);

/// Throws RecordingNameError unless the bytes can be a recording's base name that stays in its folder, is not hidden,
/// and leaves room for every sibling's suffix.
void requireUsableBaseName(std::string_view name);

/// `<base><suffix>` in the folder of a recording's main file.
std::filesystem::path sibling(const std::filesystem::path& recording, std::string_view suffix);

}  // namespace tessivox::library
