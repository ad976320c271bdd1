#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "base/Observable.h"
#include "base/Signal.h"
#include "base/TaskQueue.h"
#include "base/TaskScope.h"
#include "base/ports/Files.h"
#include "core/AppSettings.h"
#include "library/Recording.h"
#include "library/RecordingMetadata.h"
#include "library/RecordingScan.h"
#include "library/Trash.h"
#include "library/ports/MediaLengths.h"

namespace tessivox::library {

/// The recordings folder as a list, and the operations that treat a recording and its siblings as one thing. The folder
/// is all there is: nothing is remembered but durations. Main thread.
class RecordingStorage {
public:
    struct Parts {
        base::Runtime& runtime;
        base::Files& files;
        core::AppSettings& settings;
        Trash& trash;
        const MediaLengths& lengths;
        MakeID makeID;
    };

    /// Begins the first scan.
    explicit RecordingStorage(Parts parts);
    RecordingStorage(const RecordingStorage&) = delete;
    RecordingStorage& operator=(const RecordingStorage&) = delete;
    /// A scan that still runs ends early.
    ~RecordingStorage();

    base::Observable<std::vector<Recording>> recordings;  ///< newest first
    base::Observable<bool> isLoading{false};
    /// A recording's main file has another name now.
    base::Signal<const std::filesystem::path&, const std::filesystem::path&> onMoved;
    /// A recording's main file is in the Trash.
    base::Signal<const std::filesystem::path&> onTrashed;

    /// Starts a scan on a queue of its own and returns; the list stays until the result is there. Does nothing while a
    /// scan runs.
    void loadRecordings();
    // These take copies, since an entry of the list would change under them.

    /// Moves the main file, transcript, summary and tracks to the Trash, in this order. The first failure throws a
    /// base::Error: what is in the Trash then stays there, and the list stays as it is.
    void deleteRecording(Recording recording);
    /// Gives a recording and its siblings another base name, and the title that goes with it. Throws a base::Error, and
    /// nothing has changed, if the name cannot be used or is taken; siblings that cannot be moved keep their names.
    void renameRecording(Recording recording, const std::string& newName);
    /// After another part has renamed the main file on disk.
    void recordingMoved(const std::filesystem::path& from, const std::filesystem::path& to);
    /// Shows a file that was just made at the head of the list, without a scan. `duration` in seconds.
    void addRecording(const std::filesystem::path& url, double duration);

    /// See RecordingMetadata.
    std::optional<std::string> readMetadata(const std::filesystem::path& url, const std::string& attributeName);
    void writeMetadata(const std::filesystem::path& url, const std::optional<std::string>& value,
                       const std::string& attributeName);

private:
    base::Files& files_;
    base::Scheduler& scheduler_;
    core::AppSettings& settings_;
    Trash& trash_;
    const MediaLengths& lengths_;
    MakeID makeID_;
    RecordingMetadata metadata_;
    DurationCache durations_;
    bool isScanOutdated_ = false;  ///< the folder was changed here while a scan ran
    std::stop_source stop_;
    std::unique_ptr<base::TaskQueue> queue_;
    base::TaskScope tasks_;

    base::Task<void> scan();
    std::function<ScanResult()> scanWork() const;
    void trashIfThere(const std::filesystem::path& file);
    void moveToFreeName(const std::filesystem::path& from, const std::filesystem::path& to);
    bool moveIfFree(const std::filesystem::path& from, const std::filesystem::path& to);
    void syncIfPossible(const std::filesystem::path& folder);
    std::vector<Recording>::iterator entryOf(const Recording& recording, std::vector<Recording>& list) const;
    void replaceEntry(const Recording& old, Recording renamed);
    void moveDuration(const std::filesystem::path& from, const std::filesystem::path& to);
    void setList(std::vector<Recording> list);
};

}  // namespace tessivox::library
