#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/Completion.h"
#include "base/Task.h"
#include "base/TaskQueue.h"
#include "base/TaskScope.h"
#include "core/AppSettings.h"
#include "library/RecordingStorage.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "transcription/DeviceIdentity.h"
#include "transcription/PendingTranscriptionStore.h"
#include "transcription/QuotaAlert.h"
#include "transcription/RecordingClaims.h"
#include "transcription/ResultFiles.h"
#include "transcription/ServerClient.h"
#include "transcription/Summaries.h"
#include "transcription/TranscriptionPipeline.h"
#include "transcription/TranscriptionState.h"
#include "transcription/TranscriptionTimings.h"
#include "transcription/ports/NetworkPath.h"

namespace tessivox::transcription {

/// Turns recordings into transcripts on disk. Destroying the task of an operation, or the service, aborts its request,
/// removes the upload copy and leaves no status at uploading or processing; a task of the server that is known by then
/// stays among the pending ones. Tasks that were handed out end before the service. Main thread.
class TranscriptionService {
    TranscriptionState state_;

public:
    struct Parts {
        base::Runtime& runtime;
        base::Files& files;
        base::Preferences& preferences;
        core::AppSettings& settings;
        library::RecordingStorage& storage;
        ServerClient& client;
        ServerLocation& location;
        DeviceIdentity& identity;
        AudioDownsampler& downsampler;
        NetworkPath& network;
        core::Alerts& alerts;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        std::filesystem::path folder;           ///< of the pending tasks' file: Tessivox's own in the data home
        std::string appVersion;                 ///< empty if not known
        std::function<std::string()> makeUuid;  ///< upper-case text
        std::function<void()> contactSupport{};
        std::function<void()> evaluateDue{};  ///< a transcript was finished
        TranscriptionTimings timings{};
    };
    explicit TranscriptionService(Parts parts);
    TranscriptionService(const TranscriptionService&) = delete;
    TranscriptionService& operator=(const TranscriptionService&) = delete;
    ~TranscriptionService();

    base::Observable<PerRecording<TranscriptionStatus>>& activeTranscriptions = state_.activeTranscriptions;
    base::Observable<PerRecording<SummaryStatus>>& activeSummaries = state_.activeSummaries;
    base::Observable<std::optional<UsageInfo>>& currentUsage = state_.currentUsage;
    base::Observable<PerRecording<TranscriptionFailureKind>>& lastFailure = state_.lastFailure;
    base::Observable<PerRecording<std::string>>& lastFailureHint = state_.lastFailureHint;

    /// Ends once the transcript is on the disk; gives the recording's path, which the title may have changed. Throws
    /// TranscriptionError or base::Error. Who does not wait for the result may destroy the task, in a later turn of the
    /// loop, once the recording's status is `processing`: from then on the server's task is among the pending ones, and
    /// the process that resumes them goes on with it.
    base::Task<std::filesystem::path> transcribe(std::filesystem::path url, TranscriptionSource source,
                                                 std::optional<base::Duration> duration);
    /// With the summary after it, if the user wants one. Never throws.
    base::Task<void> transcribeAndSummarize(std::filesystem::path url, TranscriptionSource source,
                                            std::optional<base::Duration> duration);
    /// transcribe() for a user who waits: tells of a used up quota each time. Throws what that throws.
    base::Task<std::filesystem::path> transcribeManually(std::filesystem::path url,
                                                         std::optional<base::Duration> duration);
    /// Gives up the recording's run, if there is one; its task throws soon after.
    void cancel(const std::filesystem::path& url);

    /// Throws TranscriptionError. A device token that is missing is asked for afterwards.
    base::Task<void> refreshUsage();
    /// Ends once the token that refreshUsage() asked for is there or cannot be had. After refreshUsage().
    base::Task<void> deviceTokenSettled();
    base::Task<void> showQuotaAlert() { return quotaAlert_.show(); }
    base::Task<void> showQuotaAlertOncePerPeriod() { return quotaAlert_.showOncePerPeriod(currentUsage.get()); }
    void clearFailureState(const std::filesystem::path& url) { state_.clearFailureState(url); }

    /// Goes on with the tasks of earlier runs, and from then on with those that other processes leave.
    void resumePendingTranscriptions();
    void networkPathChanged(bool isAvailable);

    ResultFiles& results() { return results_; }
    Summaries& summaries() { return summaries_; }

private:
    struct LiveRun;
    using Live = std::shared_ptr<LiveRun>;

    Parts parts_;
    base::Scheduler& scheduler_;
    RecordingPlaces places_;
    RecordingClaims claims_;
    PendingTranscriptionStore pending_;
    ResultFiles results_;
    TranscriptionPipeline pipeline_;
    Summaries summaries_;
    QuotaAlert quotaAlert_;
    std::vector<std::weak_ptr<LiveRun>> runs_;
    std::set<std::string> ownTasks_;  ///< that this process has waited for, or does
    bool networkWasAvailable_ = true;
    bool deviceTokenRequested_ = false;
    base::Completion<bool> tokenSettled_;
    base::Subscription moved_, trashed_, network_, pendingChanged_;
    base::Timer pendingCheck_;
    base::TaskScope tasks_;

    RecordingClaims::Claim claimOrThrow(const std::filesystem::path& url);
    Live begin(const std::filesystem::path& url, TranscriptionSource source, std::optional<base::Duration> duration,
               std::optional<PendingTask> entry);
    void checkQuotaFirst(const TranscriptionRun& run);
    base::Task<TranscribeResponse> outcome(Live live);
    base::Task<void> carryOut(LiveRun& live);
    void finish(const TranscriptionRun& run, const TranscribeResponse& response);
    void fail(const LiveRun& live, const std::exception_ptr& error);
    void failForGood(const TranscriptionRun& run, const std::exception_ptr& error);
    void leave(const TranscriptionRun& run);
    void reportBlocked(const TranscriptionRun& run);
    void reportCompleted(const TranscriptionRun& run, const std::string& key, const std::string& value);

    void goOnWithPendingTasks();
    bool isSettled(const PendingTask& task);
    void resume(const PendingTask& task);
    bool isWorthRetrying(const std::filesystem::path& url, base::WallTime failed);
    base::Task<void> retry(RecordingPlace place);
    base::Task<void> fetchMissingDeviceToken(base::Completion<bool> settled);

    void renameFromTitle(std::filesystem::path url);
    void recordingMoved(const std::filesystem::path& from, const std::filesystem::path& to);
    void recordingTrashed(const std::filesystem::path& url);
};

}  // namespace tessivox::transcription
