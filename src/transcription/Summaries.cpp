#include "transcription/Summaries.h"

#include <optional>

#include "base/AtEnd.h"
#include "base/Log.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionFailure.h"

namespace tessivox::transcription {

using Path = std::filesystem::path;
using telemetry::AnalyticsEvent;

base::Task<void> Summaries::summarize(Path url) {
    const auto place = parts_.places.of(url);
    if (!parts_.results.hasTranscript(url))
        throw TranscriptionError(TranscriptionError::TranscriptionFailed{"No transcript found"});
    auto& summaries = parts_.state.activeSummaries;
    setEntry(summaries, url, SummaryStatus::processing);
    const base::AtEnd unfinished([this, &place] { parts_.state.dropUnfinishedSummary(place.url()); });
    std::exception_ptr error;
    try {
        co_await makeSummary(place);
    } catch (...) {
        error = std::current_exception();
    }
    if (!place.isGone()) setEntry(summaries, place.url(), error ? SummaryStatus::failed : SummaryStatus::completed);
    if (error) std::rethrow_exception(error);
}

base::Task<void> Summaries::makeSummary(RecordingPlace place) {
    auto text = parts_.results.readTranscript(place.url());
    auto title = parts_.results.storedTitle(place.url());
    const auto reply = co_await parts_.client.sendSummarize(std::move(text), std::move(title));
    parts_.state.currentUsage.set(reply.usage);
    if (place.isGone())
        throw TranscriptionError(TranscriptionError::TranscriptionFailed{"The recording is in the Trash"});
    parts_.results.saveSummary(place.url(), reply.summary);
}

base::Task<void> Summaries::summarizeAutomatically(Path url) {
    using telemetry::BreadcrumbLevel;
    const auto place = parts_.places.of(url);
    parts_.crashReporter.addBreadcrumb("Auto-summary started", "summary", BreadcrumbLevel::info);
    std::exception_ptr error;
    try {
        co_await summarize(url);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        base::log("Auto-summary failed: " + base::describe(error));
        reportFailed("auto", error);
        parts_.crashReporter.error("Auto-summary failed", error);
        co_return;
    }
    base::log("Auto-summary completed for: " + place.url().filename().string());
    reportGenerated("auto");
    parts_.crashReporter.addBreadcrumb("Auto-summary completed", "summary", BreadcrumbLevel::info);
    parts_.renameFromTitle(place.url());
}

base::Task<Path> Summaries::summarizeManually(Path url) {
    const auto place = parts_.places.of(url);
    std::exception_ptr error;
    try {
        co_await summarize(url);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        base::log("Manual summary failed: " + base::describe(error));
        reportFailed("manual", error);
        std::rethrow_exception(error);
    }
    reportGenerated("manual");
    parts_.renameFromTitle(place.url());
    co_return place.url();
}

void Summaries::reportGenerated(const std::string& mode) {
    parts_.analytics.track(AnalyticsEvent::summaryGenerated, {{"mode", mode}});
}

void Summaries::reportFailed(const std::string& mode, const std::exception_ptr& error) {
    parts_.analytics.track(AnalyticsEvent::summaryFailed, {{"mode", mode}, {"reason", failureReason(error)}});
}

}  // namespace tessivox::transcription
