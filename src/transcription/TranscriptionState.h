#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "base/Observable.h"
#include "base/Units.h"
#include "transcription/ServerRecords.h"

namespace tessivox::transcription {

enum class TranscriptionStatus { none, uploading, processing, completed, failed };
enum class SummaryStatus { none, processing, completed, failed };
enum class TranscriptionFailureKind { quota, error, noSpeech };

/// A value for each of some recordings, by their paths.
template <typename T>
using PerRecording = std::map<std::filesystem::path, T>;

template <typename T>
void setEntry(base::Observable<PerRecording<T>>& map, const std::filesystem::path& url, T value) {
    auto next = map.get();
    next.insert_or_assign(url, std::move(value));
    map.set(std::move(next));
}

template <typename T>
void removeEntry(base::Observable<PerRecording<T>>& map, const std::filesystem::path& url) {
    auto next = map.get();
    if (next.erase(url) > 0) map.set(std::move(next));
}

template <typename T>
void moveEntry(PerRecording<T>& map, const std::filesystem::path& from, const std::filesystem::path& to) {
    auto entry = map.extract(from);
    if (!entry.empty()) map.insert_or_assign(to, std::move(entry.mapped()));
}

template <typename T>
void moveEntry(base::Observable<PerRecording<T>>& map, const std::filesystem::path& from,
               const std::filesystem::path& to) {
    auto next = map.get();
    moveEntry(next, from, to);
    map.set(std::move(next));
}

/// What is known of transcriptions since the launch. A recording that a map lacks has nothing to tell: its status is
/// `none`. Main thread.
struct TranscriptionState {
    base::Observable<PerRecording<TranscriptionStatus>> activeTranscriptions;
    base::Observable<PerRecording<SummaryStatus>> activeSummaries;
    base::Observable<std::optional<UsageInfo>> currentUsage;
    base::Observable<PerRecording<TranscriptionFailureKind>> lastFailure;
    base::Observable<PerRecording<std::string>> lastFailureHint;
    PerRecording<base::WallTime> networkFailures;    ///< when a run last ended for want of a network
    std::set<std::filesystem::path> networkRetried;  ///< tried again by itself once; only grows

    TranscriptionStatus transcription(const std::filesystem::path& url) const;
    bool isTranscribing(const std::filesystem::path& url) const;
    void clearFailureState(const std::filesystem::path& url);
    // For work that was given up: a recording whose work still shows as under way has nothing to tell then.
    void dropUnfinishedTranscription(const std::filesystem::path& url);
    void dropUnfinishedSummary(const std::filesystem::path& url);
    void moved(const std::filesystem::path& from, const std::filesystem::path& to);
    void gone(const std::filesystem::path& url);
};

}  // namespace tessivox::transcription
