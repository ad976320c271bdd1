#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "base/Scheduler.h"
#include "base/SharedDocument.h"
#include "transcription/PendingDocument.h"

namespace tessivox::transcription {

/// Which recordings wait for which tasks of the server, so that a later start goes on where a process ended.
///
/// The file belongs to all processes of the user. Reading it takes no lock, since it is only ever replaced as a whole.
/// Whoever changes it holds the lock beside it, reads it again, changes its own entries and replaces it. Whose business
/// an entry is, RecordingClaims tells: only who has claimed the recording adds, polls or removes its task.
///
/// What cannot be written is kept for the life of the process and written with the next change. No operation throws.
/// Main thread.
class PendingTranscriptionStore {
public:
    static constexpr base::Duration kLongestLife = std::chrono::hours(24);

    /// `folder` holds the file and is made if missing. Drops entries that have reached their longest life.
    PendingTranscriptionStore(base::Files& files, base::Scheduler& scheduler, const std::filesystem::path& folder);

    /// The recording's task, if it is still usable.
    std::optional<PendingTask> entry(const std::filesystem::path& recording) const;
    std::vector<PendingTask> entries() const;

    /// Adds or replaces the recording's task, on the disk when it returns.
    void add(PendingTask task);
    void remove(const std::filesystem::path& recording);
    /// The task leaves this store, but not the file until settle(): its result is here and not yet safe.
    void take(const std::filesystem::path& recording);
    void settle(const std::filesystem::path& recording);
    /// The result will not be kept after all.
    void putBack(const std::filesystem::path& recording);
    void moved(const std::filesystem::path& from, const std::filesystem::path& to);

private:
    base::Files& files_;
    base::Scheduler& scheduler_;
    base::SharedDocument document_;
    std::map<std::filesystem::path, std::optional<PendingTask>> unsaved_;  ///< absent value: removed
    std::set<std::filesystem::path> taken_;

    PendingTasks read() const;
    PendingTasks withUnsaved() const;
    bool isUsable(const PendingTask& task) const;
    void prune();
    void save();
};

}  // namespace tessivox::transcription
