#include "transcription/TranscriptionState.h"

namespace tessivox::transcription {

using Path = std::filesystem::path;

TranscriptionStatus TranscriptionState::transcription(const Path& url) const {
    const auto& all = activeTranscriptions.get();
    const auto found = all.find(url);
    return found == all.end() ? TranscriptionStatus::none : found->second;
}

bool TranscriptionState::isTranscribing(const Path& url) const {
    const auto status = transcription(url);
    return status == TranscriptionStatus::uploading || status == TranscriptionStatus::processing;
}

void TranscriptionState::clearFailureState(const Path& url) {
    removeEntry(lastFailure, url);
    removeEntry(lastFailureHint, url);
    networkFailures.erase(url);
}

void TranscriptionState::dropUnfinishedTranscription(const Path& url) {
    if (isTranscribing(url)) removeEntry(activeTranscriptions, url);
}

void TranscriptionState::dropUnfinishedSummary(const Path& url) {
    const auto& all = activeSummaries.get();
    const auto found = all.find(url);
    if (found != all.end() && found->second == SummaryStatus::processing) removeEntry(activeSummaries, url);
}

void TranscriptionState::moved(const Path& from, const Path& to) {
    moveEntry(activeTranscriptions, from, to);
    moveEntry(activeSummaries, from, to);
    moveEntry(lastFailure, from, to);
    moveEntry(lastFailureHint, from, to);
    moveEntry(networkFailures, from, to);
    if (networkRetried.erase(from) > 0) networkRetried.insert(to);
}

void TranscriptionState::gone(const Path& url) {
    clearFailureState(url);
    removeEntry(activeTranscriptions, url);
    removeEntry(activeSummaries, url);
}

}  // namespace tessivox::transcription
