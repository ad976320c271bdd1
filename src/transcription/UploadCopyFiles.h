#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "base/ports/Files.h"

namespace tessivox::transcription {

/// "upload_", the text of a UUID in capitals, ".m4a": the name of an upload copy in the temporary folder.
std::string uploadCopyName(std::string_view uuid);

/// Removes the upload copies that killed programs have left in a folder: files of exactly such a name that are this
/// user's and that nobody has locked. Ignores failures. Any thread.
void sweepUploadCopies(base::Files& files, const std::filesystem::path& folder);

}  // namespace tessivox::transcription
