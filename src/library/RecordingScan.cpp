#include "library/RecordingScan.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>

#include "audio/Mpeg4Duration.h"
#include "base/Log.h"
#include "library/RecordingName.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

constexpr std::string_view kMicrophoneLabel = "Microphone";
constexpr std::string_view kSystemLabel = "System audio";

/// The base name, if a file's name is that of audio in the library.
std::optional<std::string_view> baseOfAudio(std::string_view name) {
    if (name.starts_with('.') || name.size() < kAudioExtension.size()) return std::nullopt;
    const auto at = name.size() - kAudioExtension.size();
    const auto isSame = [](char expected, char letter) {
        return letter == expected || (letter >= 'A' && letter <= 'Z' && letter - 'A' + 'a' == expected);
    };
    if (!std::ranges::equal(kAudioExtension, name.substr(at), isSame)) return std::nullopt;
    return name.substr(0, at);
}

class Scan {
public:
    Scan(base::Files& files, const MediaLengths& lengths, const MakeID& makeID, const Path& folder,
         const DurationCache& known)
        : files_(files), lengths_(lengths), makeID_(makeID), folder_(folder), known_(known) {}

    ScanResult run(const std::stop_token& stop) {
        sortApart(files_.list(folder_));
        result_.recordings.reserve(mains_.size());
        result_.durations.reserve(mains_.size());
        for (auto& main : mains_) {
            if (stop.stop_requested()) return std::move(result_);
            addMain(std::move(main));
        }
        for (const auto& [parent, tracks] : tracks_) {
            if (!tracks.isShown) addOrphans(tracks.files);
        }
        std::ranges::sort(result_.recordings, [](const Recording& a, const Recording& b) {
            return std::tie(b.date, b.name) < std::tie(a.date, a.name);
        });
        return std::move(result_);
    }

private:
    struct NamedFile {
        Path path;
        std::string base;
    };
    struct Tracks {
        std::vector<SubTrack> subTracks;
        std::vector<NamedFile> files;
        bool isShown = false;  ///< with a main file
    };

    base::Files& files_;
    const MediaLengths& lengths_;
    const MakeID& makeID_;
    const Path& folder_;
    const DurationCache& known_;
    std::vector<NamedFile> mains_;
    std::map<std::string, Tracks, std::less<>> tracks_;  ///< by the name of their main file
    ScanResult result_;

    void sortApart(const std::vector<Path>& names) {
        for (const auto& name : names) {
            const auto base = baseOfAudio(name.native());
            if (!base) continue;
            NamedFile file{folder_ / name, std::string(*base)};
            if (base->ends_with(kMicrophoneSuffix)) {
                addTrack(std::move(file), kMicrophoneSuffix, kMicrophoneLabel);
            } else if (base->ends_with(kSystemSuffix)) {
                addTrack(std::move(file), kSystemSuffix, kSystemLabel);
            } else {
                mains_.push_back(std::move(file));
            }
        }
    }

    void addTrack(NamedFile file, std::string_view suffix, std::string_view label) {
        auto& tracks = tracks_[file.base.substr(0, file.base.size() - suffix.size())];
        tracks.subTracks.push_back({file.path, std::string(label)});
        tracks.files.push_back(std::move(file));
    }

    void addMain(NamedFile main) {
        const auto found = tracks_.find(main.base);
        if (found == tracks_.end()) {
            add(std::move(main), {});
            return;
        }
        auto subTracks = found->second.subTracks;
        std::ranges::sort(subTracks, [](const SubTrack& a, const SubTrack& b) {
            return std::tie(a.label, a.url) < std::tie(b.label, b.url);
        });
        if (add(std::move(main), std::move(subTracks))) found->second.isShown = true;
    }

    /// A track is never lost from view because its main file is gone.
    void addOrphans(const std::vector<NamedFile>& files) {
        for (const auto& file : files) add(file, {});
    }

    bool add(NamedFile file, std::vector<SubTrack> subTracks) {
        const auto status = files_.status(file.path);
        if (!status || !status->isRegular) return false;
        const double seconds = duration(file.path, *status);
        result_.recordings.push_back(
            {makeID_(), std::move(file.path), status->birth, seconds, std::move(file.base), std::move(subTracks)});
        return true;
    }

    double duration(const Path& path, const base::FileStatus& status) {
        const auto found = known_.find(path.native());
        const bool isKnown = found != known_.end() && found->second.isOf(status);
        const double seconds = isKnown ? found->second.seconds : readDuration(path, status);
        result_.durations.insert_or_assign(path.native(), CachedDuration{status.size, status.modified, seconds});
        return seconds;
    }

    double readDuration(const Path& path, const base::FileStatus& status) const {
        if (status.size == 0) return 0;
        try {
            const auto file = files_.open(path, base::FileAccess::read);
            if (const auto found = audio::readMpeg4Duration(*file))
                return static_cast<double>(found->duration) / found->timescale;
        } catch (const base::FileError& error) {
            base::log("No duration: " + error.description());
            return 0;
        }
        const double seconds = lengths_.seconds(path).value_or(0);
        return std::isfinite(seconds) && seconds > 0 ? seconds : 0;
    }
};

}  // namespace

ScanResult scanRecordings(base::Files& files, const MediaLengths& lengths, const MakeID& makeID, const Path& folder,
                          const DurationCache& known, const std::stop_token& stop) {
    if (!files.exists(folder)) return {};
    try {
        return Scan(files, lengths, makeID, folder, known).run(stop);
    } catch (const base::FileError& error) {
        base::log("Error loading recordings: " + error.description());
        return {};
    }
}

}  // namespace tessivox::library
