#include "audio/LeftoverSweep.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "audio/RecordingFiles.h"
#include "base/Uuid.h"

namespace tessivox::audio {
namespace {

/// The user may have chosen a folder where others keep hidden files of such names: ours begin like an .m4a, or, if
/// the power failed, hold nothing yet.
bool isUnfinishedOutput(base::Files& files, const std::filesystem::path& path) {
    std::array<std::byte, 12> start{};
    try {
        const auto file = files.open(path, base::FileAccess::read);
        if (file->readAt(0, start) < start.size()) return true;
    } catch (const base::FileError&) {
        return false;
    }
    return std::ranges::all_of(start, [](std::byte byte) { return byte == std::byte{0}; }) ||
           std::memcmp(start.data() + 4, "ftypM4A ", 8) == 0;
}

constexpr std::string_view kImportPrefix = ".tessivox-import-";
constexpr std::string_view kImportEnding = ".part";

/// Nobody else has such names, so it does not matter what the file holds: a copy may begin like anything.
bool isImport(std::string_view name) {
    if (!name.starts_with(kImportPrefix) || !name.ends_with(kImportEnding)) return false;
    name.remove_prefix(kImportPrefix.size());
    return name.size() > kImportEnding.size() && base::isUuidText(name.substr(0, name.size() - kImportEnding.size()));
}

class Sweep {
public:
    Sweep(base::Files& files, const std::filesystem::path& incompleteFolder,
          const std::filesystem::path& recordingsFolder)
        : files_(files), incompleteFolder_(incompleteFolder), recordingsFolder_(recordingsFolder) {}

    void run() {
        for (const auto& name : sortedNames(files_, incompleteFolder_)) {
            if (isSuperfluous(name)) files_.removeIfUnused(incompleteFolder_ / name);
        }
        files_.removeIfUnused(recordingsFolder_ / RecordingFiles::kProbe);
        for (const auto& name : sortedNames(files_, recordingsFolder_)) {
            if (isImport(name)) {
                files_.removeIfUnused(recordingsFolder_ / name);
                continue;
            }
            const auto bases = RecordingFiles::basesOfHidden(name);
            if (bases.empty() || std::ranges::any_of(bases, [this](const auto& base) { return isOpen(base); }))
                continue;
            if (isUnfinishedOutput(files_, recordingsFolder_ / name)) files_.removeIfUnused(recordingsFolder_ / name);
        }
    }

private:
    base::Files& files_;
    const std::filesystem::path& incompleteFolder_;
    const std::filesystem::path& recordingsFolder_;

    /// Whether a recording still has its stereo file, which is made first. Whoever takes that away needs the others no
    /// more, so they are nobody's at any age.
    bool isOpen(const std::string& base) const {
        const RecordingFiles names(incompleteFolder_, recordingsFolder_ / (base + ".m4a"));
        return files_.exists(names.temporary(Track::stereo));
    }
    bool isSuperfluous(const std::string& name) const {
        if (RecordingFiles::isDiscarded(name)) return true;
        const auto base = RecordingFiles::baseOfSeparateTrack(name);
        return base && !isOpen(*base);
    }
};

}  // namespace

std::string importName(std::string_view uuid) {
    return std::string(kImportPrefix) + std::string(uuid) + std::string(kImportEnding);
}

std::vector<std::string> sortedNames(const base::Files& files, const std::filesystem::path& folder) {
    std::vector<std::string> names;
    try {
        for (const auto& name : files.list(folder)) names.push_back(name.native());
    } catch (const base::FileError&) {
        // No folder, no files.
    }
    std::ranges::sort(names);
    return names;
}

void sweepHidden(base::Files& files, const RecordingFiles& names) {
    for (const auto track : kTracks) {
        const auto path = names.hidden(track);
        const auto status = files.linkStatus(path);
        if (status && status->isRegular && isUnfinishedOutput(files, path)) files.removeIfUnused(path);
    }
}

void sweepLeftovers(base::Files& files, const std::filesystem::path& incompleteFolder,
                    const std::filesystem::path& recordingsFolder) {
    Sweep(files, incompleteFolder, recordingsFolder).run();
}

}  // namespace tessivox::audio
