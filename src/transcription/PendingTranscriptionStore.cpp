#include "transcription/PendingTranscriptionStore.h"

#include <utility>

#include "base/Log.h"

namespace tessivox::transcription {

using Path = std::filesystem::path;

PendingTranscriptionStore::PendingTranscriptionStore(base::Files& files, base::Scheduler& scheduler, const Path& folder)
    : files_(files), scheduler_(scheduler), document_(files, folder / "pending_transcriptions.json") {
    try {
        files_.makeFolders(folder);
    } catch (const base::FileError&) {
        // Saving will say so.
    }
    prune();
}

bool PendingTranscriptionStore::isUsable(const PendingTask& task) const {
    return scheduler_.wallNow() - task.submittedAt < kLongestLife;
}

void PendingTranscriptionStore::prune() {
    for (const auto& [path, task] : read()) {
        if (!isUsable(task)) unsaved_.emplace(path, std::nullopt);
    }
    if (!unsaved_.empty()) save();
}

/// A file that cannot be read or is not ours counts as empty: all it costs is a resume.
PendingTasks PendingTranscriptionStore::read() const {
    if (!files_.exists(document_.path())) return {};
    try {
        return PendingDocument::parsed(files_.readAll(document_.path(), PendingDocument::kMaxSize))
            .value_or(PendingTasks());
    } catch (const base::FileError&) {
        return {};
    }
}

PendingTasks PendingTranscriptionStore::withUnsaved() const {
    auto tasks = read();
    for (const auto& [path, task] : unsaved_) {
        tasks.erase(path);
        if (task) tasks.emplace(path, *task);
    }
    return tasks;
}

std::optional<PendingTask> PendingTranscriptionStore::entry(const Path& recording) const {
    const auto tasks = withUnsaved();
    const auto found = tasks.find(recording);
    if (found == tasks.end() || taken_.contains(recording) || !isUsable(found->second)) return std::nullopt;
    return found->second;
}

std::vector<PendingTask> PendingTranscriptionStore::entries() const {
    std::vector<PendingTask> all;
    for (auto& [path, task] : withUnsaved()) {
        if (!taken_.contains(path) && isUsable(task)) all.push_back(task);
    }
    return all;
}

void PendingTranscriptionStore::add(PendingTask task) {
    taken_.erase(task.audioPath);
    const auto path = task.audioPath;
    unsaved_.insert_or_assign(path, std::move(task));
    save();
}

void PendingTranscriptionStore::remove(const Path& recording) {
    taken_.erase(recording);
    if (!withUnsaved().contains(recording)) return;
    unsaved_.insert_or_assign(recording, std::nullopt);
    save();
}

void PendingTranscriptionStore::take(const Path& recording) { taken_.insert(recording); }

void PendingTranscriptionStore::settle(const Path& recording) {
    if (taken_.contains(recording)) remove(recording);
}

void PendingTranscriptionStore::putBack(const Path& recording) { taken_.erase(recording); }

void PendingTranscriptionStore::moved(const Path& from, const Path& to) {
    if (taken_.erase(from) > 0) taken_.insert(to);
    const auto tasks = withUnsaved();
    const auto found = tasks.find(from);
    if (found == tasks.end()) return;
    auto task = found->second;
    task.audioPath = to;
    unsaved_.insert_or_assign(from, std::nullopt);
    unsaved_.insert_or_assign(to, std::move(task));
    save();
}

void PendingTranscriptionStore::save() {
    try {
        const auto held = document_.lock();
        document_.replace(PendingDocument::text(withUnsaved()));
        unsaved_.clear();
    } catch (const base::FileError& error) {
        base::log("[Transcription] Pending tasks could not be saved: " + error.description());
    }
}

}  // namespace tessivox::transcription
