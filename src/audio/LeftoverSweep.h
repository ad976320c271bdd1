#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "audio/RecordingFiles.h"
#include "base/ports/Files.h"

namespace tessivox::audio {

/// Removes what recordings have left behind that came to their end some other way: temporary files that were only to be
/// removed, those of single sources without their stereo file, and hidden files in the recordings folder whose
/// recording has no temporary file any more, or that an import has left. What another process has locked stays. Ignores
/// failures. Any thread.
void sweepLeftovers(base::Files& files, const std::filesystem::path& incompleteFolder,
                    const std::filesystem::path& recordingsFolder);

/// Removes the hidden files of one recording beside its output, if they are unfinished outputs and nobody has locked
/// them. Ignores failures. Any thread.
void sweepHidden(base::Files& files, const RecordingFiles& names);

/// The hidden name in the recordings folder of what is being imported, from a UUID's text.
std::string importName(std::string_view uuid);

/// The names in a folder in alphabetical order; none if it cannot be listed.
std::vector<std::string> sortedNames(const base::Files& files, const std::filesystem::path& folder);

}  // namespace tessivox::audio
