#include "transcription/TranscriptionService.h"

#include <exception>

#include "base/AtEnd.h"
#include "base/Completion.h"
#include "base/Log.h"
#include "base/Text.h"
#include "library/RecordingName.h"
#include "services/telemetry/ParameterText.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionFailure.h"

namespace tessivox::transcription {
namespace {

using Path = std::filesystem::path;
using base::log;
using telemetry::AnalyticsEvent;

std::string nameOf(const Path& url) { return url.filename().string(); }

TranscriptionError cancelled() {
    const auto code = static_cast<int>(base::HttpErrorCode::cancelled);
    return TranscriptionError(
        TranscriptionError::NetworkError{code, base::localized("The transcription was given up.")});
}

}  // namespace

/// A run that can be given up from outside.
struct TranscriptionService::LiveRun {
    TranscriptionRun run;
    const std::optional<PendingTask> entry;
    const base::Completion<TranscribeResponse> answer;
    bool isCancelled = false;
    std::optional<base::TaskScope> work;

    LiveRun(TranscriptionRun attempt, std::optional<PendingTask> saved)
        : run(std::move(attempt)), entry(std::move(saved)) {}

    void giveUp() {
        work.reset();
        answer.fail(std::make_exception_ptr(cancelled()));
    }
};

TranscriptionService::TranscriptionService(Parts parts)
    : parts_(std::move(parts)),
      scheduler_(parts_.runtime.scheduler()),
      claims_(parts_.files, parts_.folder),
      pending_(parts_.files, scheduler_, parts_.folder),
      results_(parts_.files, parts_.storage),
      pipeline_({parts_.runtime, parts_.files, parts_.client, parts_.downsampler, pending_, state_, parts_.timings}),
      summaries_({results_, parts_.client, state_, places_, parts_.analytics, parts_.crashReporter,
                  [this](const Path& url) { renameFromTitle(url); }}),
      quotaAlert_(parts_.alerts, parts_.preferences, parts_.contactSupport),
      tasks_(scheduler_) {
    moved_ = parts_.storage.onMoved.observe([this](const Path& from, const Path& to) { recordingMoved(from, to); });
    trashed_ = parts_.storage.onTrashed.observe([this](const Path& url) { recordingTrashed(url); });
    network_ = parts_.network.onChange([this](bool isAvailable) { networkPathChanged(isAvailable); });
    networkPathChanged(parts_.network.isAvailable());
}

TranscriptionService::~TranscriptionService() = default;

// A run

base::Task<Path> TranscriptionService::transcribe(Path url, TranscriptionSource source,
                                                  std::optional<base::Duration> duration) {
    const auto claim = claimOrThrow(url);
    const auto entry = pending_.entry(url);
    if (!entry && source == TranscriptionSource::resume) throw TranscriptionError(TranscriptionError::TaskLost{});
    const auto live = begin(url, source, duration, entry);
    const auto& run = live->run;
    if (!entry) checkQuotaFirst(run);
    log("[Transcription] Starting transcription for: " + nameOf(url) + " (source: " + std::string(sourceName(source)) +
        ", resume: " + telemetry::truthText(entry.has_value()) + ")");
    setEntry(activeTranscriptions, url, entry ? TranscriptionStatus::processing : TranscriptionStatus::uploading);
    const base::AtEnd atEnd([this, &run] { leave(run); });
    std::exception_ptr error;
    try {
        const auto response = co_await outcome(live);
        finish(run, response);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        fail(*live, error);
        std::rethrow_exception(error);
    }
    co_return run.url();
}

RecordingClaims::Claim TranscriptionService::claimOrThrow(const Path& url) {
    auto claim = state_.isTranscribing(url) ? std::nullopt : claims_.claim(url);
    if (claim) return std::move(*claim);
    log("[Transcription] Already in progress for: " + nameOf(url) + ", skipping");
    throw TranscriptionError(TranscriptionError::AlreadyInProgress{});
}

TranscriptionService::Live TranscriptionService::begin(const Path& url, TranscriptionSource source,
                                                       std::optional<base::Duration> duration,
                                                       std::optional<PendingTask> entry) {
    TranscriptionRun run{parts_.makeUuid(), source, places_.of(url), duration};
    run.resumed = entry.has_value();
    parts_.analytics.track(AnalyticsEvent::transcriptionStarted, run.properties(parts_.files));
    const auto live = std::make_shared<LiveRun>(std::move(run), std::move(entry));
    std::erase_if(runs_, [](const auto& known) { return known.expired(); });
    runs_.push_back(live);
    return live;
}

void TranscriptionService::checkQuotaFirst(const TranscriptionRun& run) {
    try {
        pipeline_.requireQuota();
    } catch (const TranscriptionError&) {
        log("[Transcription] Limit exceeded (pre-check), skipping upload");
        setEntry(lastFailure, run.url(), TranscriptionFailureKind::quota);
        reportBlocked(run);
        throw;
    }
}

base::Task<TranscribeResponse> TranscriptionService::outcome(Live live) {
    live->work.emplace(scheduler_);
    live->work->start(carryOut(*live));
    auto response = co_await live->answer;
    if (live->isCancelled) throw cancelled();
    co_return response;
}

base::Task<void> TranscriptionService::carryOut(LiveRun& live) {
    std::optional<TranscribeResponse> response;
    std::exception_ptr error;
    try {
        response = co_await pipeline_.runTranscription(live.run, live.entry);
    } catch (...) {
        error = std::current_exception();
    }
    // In a later turn, since whoever waits for the answer ends this task with it.
    scheduler_.post([answer = live.answer, response, error] {
        if (response) return answer.succeed(*response);
        answer.fail(error);
    });
}

void TranscriptionService::finish(const TranscriptionRun& run, const TranscribeResponse& response) {
    currentUsage.set(response.usage);
    results_.saveTranscript(run.url(), response.text);
    pending_.settle(run.url());
    log("[Transcription] Success! Saved to: " + nameOf(library::sibling(run.url(), ".txt")));
    setEntry(activeTranscriptions, run.url(), TranscriptionStatus::completed);
    clearFailureState(run.url());
    if (response.title) {
        results_.storeTitle(run.url(), *response.title, response.gist);
        renameFromTitle(run.url());
    }
    reportCompleted(run, "has_gist", telemetry::truthText(response.title && response.gist));
    if (parts_.evaluateDue) parts_.evaluateDue();
}

void TranscriptionService::fail(const LiveRun& live, const std::exception_ptr& error) {
    const auto& run = live.run;
    if (live.isCancelled) return log("[Transcription] Given up: " + run.fileName());
    log("[Transcription] ERROR: " + base::describe(error));
    pending_.settle(run.url());
    const auto known = asTranscriptionError(error);
    if (known && known->as<TranscriptionError::NoSpeech>()) {
        setEntry(activeTranscriptions, run.url(), TranscriptionStatus::completed);
        clearFailureState(run.url());
        setEntry(lastFailure, run.url(), TranscriptionFailureKind::noSpeech);
        return reportCompleted(run, "result", "no_speech");
    }
    setEntry(activeTranscriptions, run.url(), TranscriptionStatus::failed);
    if (known && known->as<TranscriptionError::LimitExceeded>()) {
        setEntry(lastFailure, run.url(), TranscriptionFailureKind::quota);
        return reportBlocked(run);
    }
    failForGood(run, error);
}

void TranscriptionService::failForGood(const TranscriptionRun& run, const std::exception_ptr& error) {
    const auto known = asTranscriptionError(error);
    const auto hint = known ? known->failureHint() : std::nullopt;
    setEntry(lastFailure, run.url(), TranscriptionFailureKind::error);
    if (hint) {
        setEntry(lastFailureHint, run.url(), *hint);
    } else {
        removeEntry(lastFailureHint, run.url());
    }
    if (known && known->as<TranscriptionError::NetworkError>())
        state_.networkFailures.insert_or_assign(run.url(), scheduler_.wallNow());
    reportTranscriptionFailure(parts_.analytics, parts_.files, error, run, parts_.appVersion);
    parts_.crashReporter.transcriptionFailed(run.fileName(), base::describe(error));
}

/// However a run ended, and also where its task was destroyed. A task of the server that is still pending then was
/// waited for in vain: it is for the user, or for the next start.
void TranscriptionService::leave(const TranscriptionRun& run) {
    state_.dropUnfinishedTranscription(run.url());
    pending_.putBack(run.url());
    if (const auto entry = pending_.entry(run.url())) ownTasks_.insert(entry->taskId);
}

void TranscriptionService::reportBlocked(const TranscriptionRun& run) {
    parts_.analytics.track(AnalyticsEvent::transcriptionBlocked, {{"reason", "quota"}, {"attempt_id", run.attemptId}});
}

void TranscriptionService::reportCompleted(const TranscriptionRun& run, const std::string& key,
                                           const std::string& value) {
    auto parameters = run.properties(parts_.files);
    parameters.emplace(key, value);
    parts_.analytics.track(AnalyticsEvent::transcriptionCompleted, parameters);
}

void TranscriptionService::cancel(const Path& url) {
    for (const auto& weak : runs_) {
        const auto live = weak.lock();
        if (!live || live->run.url() != url) continue;
        live->isCancelled = true;
        // In a later turn, since the one who asks may be the run itself.
        scheduler_.post([weak] {
            if (const auto given = weak.lock()) given->giveUp();
        });
    }
}

// Runs and what follows them

base::Task<void> TranscriptionService::transcribeAndSummarize(Path url, TranscriptionSource source,
                                                              std::optional<base::Duration> duration) {
    std::exception_ptr error;
    try {
        url = co_await transcribe(url, source, duration);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        const auto known = asTranscriptionError(error);
        if (known && known->as<TranscriptionError::LimitExceeded>()) co_await showQuotaAlertOncePerPeriod();
        co_return;
    }
    if (parts_.settings.autoSummarize.get()) co_await summaries_.summarizeAutomatically(url);
}

base::Task<Path> TranscriptionService::transcribeManually(Path url, std::optional<base::Duration> duration) {
    std::exception_ptr error;
    try {
        co_return co_await transcribe(url, TranscriptionSource::manual, duration);
    } catch (...) {
        error = std::current_exception();
    }
    log("Manual transcription failed: " + base::describe(error));
    const auto known = asTranscriptionError(error);
    if (known && known->as<TranscriptionError::LimitExceeded>()) co_await showQuotaAlert();
    std::rethrow_exception(error);
}

// Usage

base::Task<void> TranscriptionService::refreshUsage() {
    const auto usage = co_await parts_.client.usage();
    currentUsage.set(usage);
    if (deviceTokenRequested_) co_return;
    tokenSettled_ = {};
    tasks_.start(fetchMissingDeviceToken(tokenSettled_));
}

base::Task<void> TranscriptionService::deviceTokenSettled() { co_await tokenSettled_; }

/// Once in the life of the process.
base::Task<void> TranscriptionService::fetchMissingDeviceToken(base::Completion<bool> settled) {
    const base::AtEnd atEnd([&settled] { settled.succeed(true); });
    try {
        const auto address = co_await parts_.location.baseURL();
        if (parts_.identity.deviceToken(address) || std::exchange(deviceTokenRequested_, true)) co_return;
    } catch (const base::Error&) {
        co_return;
    }
    co_await parts_.client.fetchDeviceToken();
}

// Pending tasks

void TranscriptionService::resumePendingTranscriptions() {
    claims_.sweep();
    try {
        pendingChanged_ = parts_.files.watch(parts_.folder, [this] { goOnWithPendingTasks(); });
    } catch (const base::FileError& error) {
        log("[Transcription] Tasks left by other processes go unnoticed: " + error.description());
    }
    goOnWithPendingTasks();
}

void TranscriptionService::goOnWithPendingTasks() {
    bool areOthersWaiting = false;
    for (const auto& task : pending_.entries()) {
        if (ownTasks_.contains(task.taskId) || state_.isTranscribing(task.audioPath)) continue;
        if (claims_.isClaimed(task.audioPath)) {
            areOthersWaiting = true;
        } else if (isSettled(task)) {
            pending_.remove(task.audioPath);
        } else {
            resume(task);
        }
    }
    pendingCheck_.reset();
    if (areOthersWaiting)
        pendingCheck_ = scheduler_.after(parts_.timings.pendingCheckInterval, [this] { goOnWithPendingTasks(); });
}

/// Whether nothing is left to do for the recording.
bool TranscriptionService::isSettled(const PendingTask& task) {
    return !parts_.files.exists(task.audioPath) || results_.hasTranscript(task.audioPath);
}

void TranscriptionService::resume(const PendingTask& task) {
    ownTasks_.insert(task.taskId);
    const auto minutes = telemetry::wholeMinutesText(scheduler_.wallNow() - task.submittedAt);
    parts_.analytics.track(AnalyticsEvent::transcriptionResumed, {{"age_min", minutes}});
    log("[Transcription] Resuming pending task for " + nameOf(task.audioPath) + " (" + minutes + " min old)");
    tasks_.start(transcribeAndSummarize(task.audioPath, TranscriptionSource::resume, std::nullopt));
}

// Network

void TranscriptionService::networkPathChanged(bool isAvailable) {
    if (!std::exchange(networkWasAvailable_, isAvailable) && isAvailable) {
        for (const auto& [url, failed] : std::exchange(state_.networkFailures, {})) {
            if (!isWorthRetrying(url, failed)) continue;
            state_.networkRetried.insert(url);
            log("[Transcription] Network is back \u2014 retrying " + nameOf(url));
            tasks_.start(retry(places_.of(url)));
        }
    }
}

bool TranscriptionService::isWorthRetrying(const Path& url, base::WallTime failed) {
    const auto& failures = lastFailure.get();
    const auto kind = failures.find(url);
    return failed > scheduler_.wallNow() - parts_.timings.networkFailureAge && !state_.networkRetried.contains(url) &&
           kind != failures.end() && kind->second == TranscriptionFailureKind::error && parts_.files.exists(url) &&
           !results_.hasTranscript(url);
}

base::Task<void> TranscriptionService::retry(RecordingPlace place) {
    co_await scheduler_.sleep(parts_.timings.networkRetryDelay);
    if (place.isGone()) co_return;
    co_await transcribeAndSummarize(place.url(), TranscriptionSource::networkRetry, std::nullopt);
}

// Recordings that move

void TranscriptionService::renameFromTitle(Path url) {
    const auto renamed = results_.renameFromTitle(url);
    if (!renamed) return;
    recordingMoved(url, *renamed);
    parts_.storage.recordingMoved(url, *renamed);
}

void TranscriptionService::recordingMoved(const Path& from, const Path& to) {
    places_.moved(from, to);
    state_.moved(from, to);
    results_.moved(from, to);
    pending_.moved(from, to);
}

void TranscriptionService::recordingTrashed(const Path& url) {
    cancel(url);
    places_.gone(url);
    state_.gone(url);
    results_.forget(url);
    pending_.remove(url);
}

}  // namespace tessivox::transcription
