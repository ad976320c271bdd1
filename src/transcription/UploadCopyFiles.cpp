#include "transcription/UploadCopyFiles.h"

#include "audio/LeftoverSweep.h"
#include "base/Uuid.h"

namespace tessivox::transcription {
namespace {

constexpr std::string_view kPrefix = "upload_";
constexpr std::string_view kExtension = ".m4a";

bool isUploadCopyName(std::string_view name) {
    if (!name.starts_with(kPrefix) || !name.ends_with(kExtension)) return false;
    name.remove_prefix(kPrefix.size());
    return name.size() > kExtension.size() && base::isUuidText(name.substr(0, name.size() - kExtension.size()));
}

/// The temporary folder is everybody's: links, and the files of others, are not ours to touch.
bool isOurs(const base::Files& files, const std::filesystem::path& path) {
    const auto status = files.linkStatus(path);
    return status && status->isRegular && status->owner == files.userID();
}

}  // namespace

std::string uploadCopyName(std::string_view uuid) {
    return std::string(kPrefix) + std::string(uuid) + std::string(kExtension);
}

void sweepUploadCopies(base::Files& files, const std::filesystem::path& folder) {
    for (const auto& name : audio::sortedNames(files, folder)) {
        if (isUploadCopyName(name) && isOurs(files, folder / name)) files.removeIfUnused(folder / name);
    }
}

}  // namespace tessivox::transcription
