#include "audio/RecordingFiles.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace tessivox::audio {
namespace {

constexpr std::string_view kStereoPrefix = "stereo_";
constexpr std::string_view kExtension = ".caf";

std::string_view temporaryPrefix(Track track) {
    switch (track) {
        case Track::stereo:
            return kStereoPrefix;
        case Track::microphone:
            return "mic_";
        case Track::system:
            return "sys_";
    }
    std::abort();
}

}  // namespace

std::filesystem::path incompleteFolder(const base::StandardFolders& folders) {
    const auto& parent = folders.applicationSupport.empty() ? folders.temporary : folders.applicationSupport;
    return parent / "Tessivox" / "Incomplete";
}

RecordingFiles::RecordingFiles(std::filesystem::path incompleteFolder, const std::filesystem::path& output)
    : incompleteFolder_(std::move(incompleteFolder)),
      outputFolder_(output.parent_path()),
      base_(output.stem().string()),
      extension_(output.extension().string()) {}

std::filesystem::path RecordingFiles::final(Track track) const {
    switch (track) {
        case Track::stereo:
            return outputFolder_ / (base_ + extension_);
        case Track::microphone:
            return outputFolder_ / (base_ + "_mic.m4a");
        case Track::system:
            return outputFolder_ / (base_ + "_system.m4a");
    }
    std::abort();
}

std::filesystem::path RecordingFiles::hidden(Track track) const {
    switch (track) {
        case Track::stereo:
            return outputFolder_ / ("." + base_ + ".part");
        case Track::microphone:
            return outputFolder_ / ("." + base_ + "_mic.part");
        case Track::system:
            return outputFolder_ / ("." + base_ + "_sys.part");
    }
    std::abort();
}

std::filesystem::path RecordingFiles::temporary(Track track) const {
    return incompleteFolder_ / (std::string(temporaryPrefix(track)) + base_ + std::string(kExtension));
}

std::filesystem::path RecordingFiles::discarded(Track track) const {
    switch (track) {
        case Track::stereo:
            return incompleteFolder_ / ("done_" + base_ + ".caf");
        case Track::microphone:
            return incompleteFolder_ / ("donemic_" + base_ + ".caf");
        case Track::system:
            return incompleteFolder_ / ("donesys_" + base_ + ".caf");
    }
    std::abort();
}

std::optional<std::string> RecordingFiles::baseOfTemporary(std::string_view name) {
    if (!name.starts_with(kStereoPrefix) || !name.ends_with(kExtension)) return std::nullopt;
    const auto length = name.size() - kExtension.size();
    if (length <= kStereoPrefix.size()) return std::nullopt;
    return std::string(name.substr(kStereoPrefix.size(), length - kStereoPrefix.size()));
}

bool RecordingFiles::isDiscarded(std::string_view name) {
    const auto hasPrefix = [name](std::string_view prefix) { return name.starts_with(prefix); };
    return name.ends_with(kExtension) && (hasPrefix("done_") || hasPrefix("donemic_") || hasPrefix("donesys_"));
}

std::filesystem::path RecordingFiles::rescued() const { return outputFolder_ / (base_ + ".caf"); }

bool RecordingFiles::isTaken(const base::Files& files) const {
    return std::ranges::any_of(kTracks, [&](Track track) {
        return files.exists(final(track)) || files.exists(temporary(track)) || files.exists(hidden(track));
    });
}

RecordingFiles RecordingFiles::firstFree(const base::Files& files) const {
    auto candidate = *this;
    for (int number = 2; candidate.isTaken(files); ++number) candidate.base_ = base_ + "_" + std::to_string(number);
    return candidate;
}

}  // namespace tessivox::audio
