#include "library/RecordingStorage.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "library/RecordingName.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

/// The path of a recording's track once the recording has another base name.
Path renamedTrack(const Path& track, std::size_t oldLength, const std::string& newName) {
    const auto base = track.stem().native();
    const auto suffix = base.substr(std::min(oldLength, base.size()));
    return track.parent_path() / (newName + suffix + std::string(kAudioExtension));
}

}  // namespace

RecordingStorage::RecordingStorage(Parts parts)
    : files_(parts.files),
      scheduler_(parts.runtime.scheduler()),
      settings_(parts.settings),
      trash_(parts.trash),
      lengths_(parts.lengths),
      makeID_(std::move(parts.makeID)),
      metadata_(files_),
      queue_(parts.runtime.makeQueue("com.tessivox.library.scan", base::QueuePriority::userInitiated)),
      tasks_(scheduler_) {
    loadRecordings();
}

RecordingStorage::~RecordingStorage() { stop_.request_stop(); }

// Scan

void RecordingStorage::loadRecordings() {
    if (isLoading.get()) return;
    isLoading.set(true);
    tasks_.start(scan());
}

/// A list that was read before a rename here would bring the old name back, so such a scan is made again.
base::Task<void> RecordingStorage::scan() {
    ScanResult result;
    do {
        isScanOutdated_ = false;
        const auto work = scanWork();
        result = co_await queue_->run(work);
    } while (isScanOutdated_);
    durations_ = std::move(result.durations);
    recordings.set(std::move(result.recordings));
    isLoading.set(false);
}

std::function<ScanResult()> RecordingStorage::scanWork() const {
    return [&files = files_, &lengths = lengths_, makeID = makeID_,
            folder = Path(settings_.recordingsDirectoryPath.get()), known = durations_,
            stop = stop_.get_token()] { return scanRecordings(files, lengths, makeID, folder, known, stop); };
}

void RecordingStorage::setList(std::vector<Recording> list) {
    isScanOutdated_ = true;
    recordings.set(std::move(list));
}

// A list may have been scanned anew since its reader took an entry, which then has another id; its path is the same.
std::vector<Recording>::iterator RecordingStorage::entryOf(const Recording& recording,
                                                           std::vector<Recording>& list) const {
    const auto found = std::ranges::find(list, recording.id, &Recording::id);
    return found != list.end() ? found : std::ranges::find(list, recording.url, &Recording::url);
}

void RecordingStorage::moveDuration(const Path& from, const Path& to) {
    auto entry = durations_.extract(from.native());
    if (entry.empty()) return;
    entry.key() = to.native();
    durations_.insert(std::move(entry));
}

// Delete

void RecordingStorage::deleteRecording(Recording recording) {
    const auto identity = metadata_.identityOf(recording.url);
    trashIfThere(recording.url);
    metadata_.forget(recording.url, identity);
    // From here on the recording is gone, even if one of its siblings cannot follow.
    isScanOutdated_ = true;
    onTrashed.emit(recording.url);
    for (const auto extension : kSidecarExtensions) trashIfThere(sibling(recording.url, extension));
    for (const auto& track : recording.subTracks) trashIfThere(track.url);
    durations_.erase(recording.url.native());
    auto list = recordings.get();
    std::erase_if(list, [&](const Recording& entry) { return entry.id == recording.id || entry.url == recording.url; });
    setList(std::move(list));
}

void RecordingStorage::trashIfThere(const Path& file) {
    if (files_.linkStatus(file)) trash_.moveToTrash(file);
}

// Rename

/// Each step is one rename in one folder, so that a crash between two of them leaves every file under its old name or
/// its new one.
void RecordingStorage::renameRecording(Recording recording, const std::string& newName) {
    if (newName == recording.url.stem().native()) return;
    requireUsableBaseName(newName);
    const auto oldLength = recording.url.stem().native().size();
    const auto folder = recording.url.parent_path();
    auto renamed = recording;
    renamed.url = folder / (newName + std::string(kAudioExtension));
    renamed.name = newName;
    moveToFreeName(recording.url, renamed.url);
    isScanOutdated_ = true;
    metadata_.moved(recording.url, renamed.url);
    metadata_.write(renamed.url, titleFromBaseName(newName), kTitleAttribute);
    for (const auto extension : kSidecarExtensions)
        moveIfFree(sibling(recording.url, extension), sibling(renamed.url, extension));
    for (auto& track : renamed.subTracks) {
        const auto target = renamedTrack(track.url, oldLength, newName);
        if (moveIfFree(track.url, target)) track.url = target;
    }
    syncIfPossible(folder);
    replaceEntry(recording, std::move(renamed));
}

void RecordingStorage::moveToFreeName(const Path& from, const Path& to) {
    try {
        files_.move(from, to);
    } catch (const base::FileError& error) {
        if (error.code() != EEXIST) throw;
        throw base::FileError(
            EEXIST, base::filled(base::localized("There is already a recording \"{0}\": choose another name."),
                                 {to.stem().string()}));
    }
}

bool RecordingStorage::moveIfFree(const Path& from, const Path& to) {
    try {
        files_.move(from, to);
        return true;
    } catch (const base::FileError& error) {
        if (files_.exists(from)) base::log("[Rename] " + error.description());
        return false;
    }
}

void RecordingStorage::syncIfPossible(const Path& folder) {
    try {
        files_.syncFolder(folder);
    } catch (const base::FileError& error) {
        base::log("[Rename] " + error.description());
    }
}

void RecordingStorage::replaceEntry(const Recording& old, Recording renamed) {
    moveDuration(old.url, renamed.url);
    auto list = recordings.get();
    const auto entry = entryOf(old, list);
    if (entry != list.end()) {
        entry->url = renamed.url;
        entry->name = renamed.name;
        entry->subTracks = renamed.subTracks;
        setList(std::move(list));
    }
    onMoved.emit(old.url, renamed.url);
}

void RecordingStorage::recordingMoved(const Path& from, const Path& to) {
    metadata_.moved(from, to);
    auto list = recordings.get();
    const auto entry = std::ranges::find(list, from, &Recording::url);
    if (entry == list.end()) return;
    const auto old = *entry;
    auto renamed = old;
    renamed.url = to;
    renamed.name = to.stem().native();
    for (auto& track : renamed.subTracks) {
        const auto candidate = renamedTrack(track.url, old.name.size(), renamed.name);
        if (files_.exists(candidate)) track.url = candidate;
    }
    replaceEntry(old, std::move(renamed));
}

// Add

void RecordingStorage::addRecording(const Path& url, double duration) {
    auto list = recordings.get();
    if (std::ranges::find(list, url, &Recording::url) != list.end()) return;
    if (const auto status = files_.status(url))
        durations_.insert_or_assign(url.native(), CachedDuration{status->size, status->modified, duration});
    list.insert(list.begin(), {makeID_(), url, scheduler_.wallNow(), duration, url.stem().native(), {}});
    setList(std::move(list));
}

// Attributes

std::optional<std::string> RecordingStorage::readMetadata(const Path& url, const std::string& attributeName) {
    return metadata_.read(url, attributeName);
}

void RecordingStorage::writeMetadata(const Path& url, const std::optional<std::string>& value,
                                     const std::string& attributeName) {
    metadata_.write(url, value, attributeName);
}

}  // namespace tessivox::library
