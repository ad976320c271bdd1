#include "audio/RecordingFiles.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/ShortenedText.h"

namespace tessivox::audio {
namespace {

// None is the end of another, so that no two recordings have a hidden name in common.
constexpr std::string_view kHiddenStereo = ".part";
constexpr std::string_view kHiddenMicrophone = ".part_mic";
constexpr std::string_view kHiddenSystem = ".part_sys";
// Of earlier versions; their leftovers are still to be found.
constexpr std::string_view kOldHiddenMicrophone = "_mic.part";
constexpr std::string_view kOldHiddenSystem = "_sys.part";
constexpr std::string_view kRecovered = "_recovered_";
constexpr std::string_view kExtension = ".caf";
constexpr std::string_view kSaved = ".m4a";

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

/// Whether it ends so, but for capital letters of ASCII; the end is given in small ones.
bool endsLike(std::string_view name, std::string_view end) {
    const auto isLike = [](char letter, char small) {
        return (letter >= 'A' && letter <= 'Z' ? letter + ('a' - 'A') : letter) == small;
    };
    return name.size() >= end.size() && std::ranges::equal(name.substr(name.size() - end.size()), end, isLike);
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
    for (const std::string_view ending :
         {kHiddenStereo, kHiddenMicrophone, kHiddenSystem, kOldHiddenMicrophone, kOldHiddenSystem}) {
        if (auto base = between(name, ".", ending)) bases.push_back(std::move(*base));
    }
    return bases;
}

std::filesystem::path RecordingFiles::recovered(int number) const {
    return outputFolder_ / (baseWith(std::string(kRecovered) + std::to_string(number)) + std::string(kSaved));
}

bool RecordingFiles::mayBeSavedAs(std::string_view name) const {
    if (!endsLike(name, kSaved)) return false;
    const auto stem = name.substr(0, name.size() - kSaved.size());
    if (stem == base_) return true;
    const std::string number(stem.substr(stem.find_last_not_of("0123456789") + 1));
    return !number.empty() && (stem == baseWith(std::string(kRecovered) + number) || stem == baseWith("_" + number));
}

std::string RecordingFiles::baseWith(const std::string& suffix) const {
    return std::string(base::shortened(base_, kLongestBase - std::min(kLongestBase, suffix.size()))) + suffix;
}

bool RecordingFiles::isDiscarded(std::string_view name) {
    const auto hasPrefix = [name](std::string_view prefix) { return name.starts_with(prefix); };
    return name.ends_with(kExtension) && (hasPrefix("done_") || hasPrefix("donemic_") || hasPrefix("donesys_"));
}

std::filesystem::path RecordingFiles::rescued(int number) const {
    const auto base = number == 1 ? base_ : baseWith("_" + std::to_string(number));
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
    for (int number = 2; candidate.isTaken(files); ++number) candidate.base_ = baseWith("_" + std::to_string(number));
    return candidate;
}

}  // namespace tessivox::audio
