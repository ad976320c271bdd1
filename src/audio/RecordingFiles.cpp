#include "audio/RecordingFiles.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace tessivox::audio {
namespace {

constexpr std::string_view kHiddenStereo = ".part";
constexpr std::string_view kHiddenMicrophone = "_mic.part";
constexpr std::string_view kHiddenSystem = "_sys.part";
constexpr std::string_view kRecovered = "_recovered_";
constexpr std::string_view kExtension = ".caf";

std::string_view temporaryPrefix(Track track) {
    switch (track) {
        case Track::stereo:
            return "stereo_";
        case Track::microphone:
            return "mic_";
        case Track::system:
            return "sys_";
    }
    std::abort();
}

/// What stands between the two, if that is anything.
std::optional<std::string> between(std::string_view name, std::string_view start, std::string_view end) {
    const auto around = start.size() + end.size();
    if (name.size() <= around || !name.starts_with(start) || !name.ends_with(end)) return std::nullopt;
    return std::string(name.substr(start.size(), name.size() - around));
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
            return outputFolder_ / ("." + base_ + std::string(kHiddenStereo));
        case Track::microphone:
            return outputFolder_ / ("." + base_ + std::string(kHiddenMicrophone));
        case Track::system:
            return outputFolder_ / ("." + base_ + std::string(kHiddenSystem));
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
    return between(name, temporaryPrefix(Track::stereo), kExtension);
}

std::optional<std::string> RecordingFiles::baseOfSeparateTrack(std::string_view name) {
    const auto base = between(name, temporaryPrefix(Track::microphone), kExtension);
    return base ? base : between(name, temporaryPrefix(Track::system), kExtension);
}

std::vector<std::string> RecordingFiles::basesOfHidden(std::string_view name) {
    std::vector<std::string> bases;
    for (const std::string_view ending : {kHiddenStereo, kHiddenMicrophone, kHiddenSystem}) {
        if (auto base = between(name, ".", ending)) bases.push_back(std::move(*base));
    }
    return bases;
}

std::filesystem::path RecordingFiles::recovered(int number) const {
    return outputFolder_ / (base_ + std::string(kRecovered) + std::to_string(number) + ".m4a");
}

bool RecordingFiles::mayBeSavedAs(std::string_view name) const {
    if (name == final(Track::stereo).filename().native()) return true;
    const auto isNumber = [](const std::optional<std::string>& text) {
        return text && text->find_first_not_of("0123456789") == std::string::npos;
    };
    return isNumber(between(name, base_ + std::string(kRecovered), ".m4a")) ||
           isNumber(between(name, base_ + "_", extension_));
}

bool RecordingFiles::isDiscarded(std::string_view name) {
    const auto hasPrefix = [name](std::string_view prefix) { return name.starts_with(prefix); };
    return name.ends_with(kExtension) && (hasPrefix("done_") || hasPrefix("donemic_") || hasPrefix("donesys_"));
}

std::filesystem::path RecordingFiles::rescued(int number) const {
    const auto base = number == 1 ? base_ : base_ + "_" + std::to_string(number);
    return outputFolder_ / (base + std::string(kExtension));
}

void RecordingFiles::syncTemporaries(base::Files& files) const noexcept {
    try {
        files.syncFolder(incompleteFolder_);
    } catch (const base::FileError&) {
        // The files come back at worst, and are recognised as saved as long as the recording keeps its name.
    }
}

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
