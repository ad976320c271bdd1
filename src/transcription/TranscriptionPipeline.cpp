#include "transcription/TranscriptionPipeline.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <utility>

#include "base/Characters.h"
#include "base/Log.h"
#include "base/Text.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionFailure.h"

namespace tessivox::transcription {
namespace {

using Path = std::filesystem::path;
using base::log;

[[noreturn]] void fail(TranscriptionError::Case why) { throw TranscriptionError(std::move(why)); }

bool isTransient(const std::exception_ptr& error) {
    const auto known = asTranscriptionError(error);
    return known && known->isTransient();
}

std::string code(const std::exception_ptr& error) { return asTranscriptionError(error)->telemetryCode(); }

bool isTaskLost(const std::exception_ptr& error) {
    const auto known = asTranscriptionError(error);
    return known && known->as<TranscriptionError::TaskLost>();
}

std::string secondsText(base::Duration span) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(span);
    return whole == span ? std::to_string(whole.count()) : base::fixedNumber(base::toSeconds(span), 3);
}

std::string megabytes(const std::optional<base::FileStatus>& status) {
    return base::fixedNumber(status ? static_cast<double>(status->size) / (1 << 20) : 0, 1) + " MB";
}

std::string readWhole(base::Files& files, const Path& file) {
    try {
        return files.readAll(file, TranscriptionPipeline::kLargestUpload);
    } catch (const base::FileError& error) {
        if (error.code() != EFBIG) throw;
        throw base::FileError(EFBIG,
                              base::localized("The recording is larger than 1 GB and no smaller copy of it could "
                                              "be made for the upload. Make it smaller and import it again."));
    }
}

}  // namespace

TranscriptionPipeline::TranscriptionPipeline(Parts parts)
    : parts_(std::move(parts)),
      scheduler_(parts_.runtime.scheduler()),
      queue_(parts_.runtime.makeQueue("com.tessivox.transcription.read", base::QueuePriority::utility)) {}

void TranscriptionPipeline::requireQuota() const {
    const auto& usage = parts_.state.currentUsage.get();
    if (usage && !usage->canTranscribe) fail(TranscriptionError::LimitExceeded{usage->used, usage->limit});
}

base::Task<TranscribeResponse> TranscriptionPipeline::runTranscription(TranscriptionRun& run,
                                                                       std::optional<PendingTask> entry) {
    if (entry) {
        auto saved = co_await pollSavedTask(run, *entry);
        if (saved) co_return std::move(*saved);
        log("[Transcription] Saved task unusable, uploading again");
        run.resumed = false;
        requireQuota();
        setEntry(parts_.state.activeTranscriptions, run.url(), TranscriptionStatus::uploading);
    }
    const auto taskId = co_await submitAudio(run);
    log("[Transcription] Got task_id: " + taskId);
    const auto now = scheduler_.wallNow();
    parts_.pending.add({run.url(), taskId, now});
    setEntry(parts_.state.activeTranscriptions, run.url(), TranscriptionStatus::processing);
    run.stage = TranscriptionStage::poll;
    co_return co_await pollTask(taskId, now, run);
}

/// Absent if the server cannot give the task's result, so that the recording must be uploaded anew.
base::Task<std::optional<TranscribeResponse>> TranscriptionPipeline::pollSavedTask(TranscriptionRun& run,
                                                                                   PendingTask entry) {
    run.stage = TranscriptionStage::poll;
    try {
        co_return co_await pollTask(entry.taskId, entry.submittedAt, run);
    } catch (const TranscriptionError& error) {
        if (!error.as<TranscriptionError::TranscriptionFailed>() && !error.as<TranscriptionError::TaskLost>()) throw;
    }
    if (run.source == TranscriptionSource::resume) fail(TranscriptionError::TaskLost{});
    co_return std::nullopt;
}

// Upload

base::Task<std::string> TranscriptionPipeline::submitAudio(TranscriptionRun& run) {
    log("[Transcription] Submit URL: " + parts_.client.shownSubmitURL());
    run.stage = TranscriptionStage::prepare;
    const auto copy = co_await makeUploadCopy(run);
    const auto upload = co_await readUpload(run, copy.get());
    run.stage = TranscriptionStage::upload;
    co_return co_await sendWithRetries(run, upload);
}

/// None if it could not be made, which fails no run.
base::Task<std::unique_ptr<UploadCopy>> TranscriptionPipeline::makeUploadCopy(TranscriptionRun& run) {
    std::unique_ptr<UploadCopy> copy;
    const UploadSettings settings;
    try {
        copy = co_await parts_.downsampler.makeUploadCopy(run.url(), settings);
        logCopy(run, *copy);
    } catch (const std::exception& error) {
        log("[Transcription] Downsample failed (" + std::string(error.what()) + "); uploading original");
    }
    co_return copy;
}

void TranscriptionPipeline::logCopy(const TranscriptionRun& run, const UploadCopy& copy) const {
    log("[Transcription] Downsampled for upload: " + megabytes(parts_.files.status(run.url())) + " -> " +
        megabytes(parts_.files.status(copy.path())));
}

base::Task<Upload> TranscriptionPipeline::readUpload(TranscriptionRun& run, const UploadCopy* copy) {
    const auto file = copy ? copy->path() : run.url();
    const std::function<std::string()> read = [&files = parts_.files, file] { return readWhole(files, file); };
    auto bytes = co_await queue_->run(read);
    run.uploadKB = bytes.size() >> 10U;
    co_return Upload{run.fileName(), std::make_shared<const std::string>(std::move(bytes))};
}

base::Task<std::string> TranscriptionPipeline::sendWithRetries(TranscriptionRun& run, Upload upload) {
    const auto delays = parts_.timings.uploadRetryDelays;
    for (auto delay = delays.begin();; ++delay) {
        std::exception_ptr error;
        try {
            co_return co_await parts_.client.sendSubmit(upload);
        } catch (...) {
            error = std::current_exception();
        }
        if (!isTransient(error) || delay == delays.end()) std::rethrow_exception(error);
        ++run.uploadRetries;
        log("[Transcription] Upload failed (" + code(error) + "), retry " + std::to_string(run.uploadRetries) + " in " +
            secondsText(*delay) + "s");
        co_await scheduler_.sleep(*delay);
    }
}

// Polling

/// How long polls have failed without a break, and how long to wait after the next failure. A machine that sleeps is
/// not counted.
class TranscriptionPipeline::Outage {
public:
    Outage(const TranscriptionTimings& timings, base::Scheduler& scheduler)
        : timings_(timings), scheduler_(scheduler) {}

    void end() {
        firstFailure_.reset();
        backoff_ = timings_.pollInterval;
    }
    bool isTooLong() {
        if (!firstFailure_) firstFailure_ = scheduler_.now();
        return scheduler_.now() - *firstFailure_ > timings_.pollOutageLimit;
    }
    base::Duration nextPause() { return std::exchange(backoff_, std::min(2 * backoff_, timings_.longestBackoff)); }

private:
    const TranscriptionTimings& timings_;
    base::Scheduler& scheduler_;
    std::optional<base::HostTime> firstFailure_;
    base::Duration backoff_ = timings_.pollInterval;
};

base::Task<TranscribeResponse> TranscriptionPipeline::pollTask(std::string taskId, base::WallTime since,
                                                               TranscriptionRun& run) {
    Outage outage(parts_.timings, scheduler_);
    for (int n = 1;; ++n) {
        std::optional<TaskStatusResponse> reply;
        std::exception_ptr error;
        try {
            reply = co_await parts_.client.fetchTaskStatus(taskId);
        } catch (...) {
            error = std::current_exception();
        }
        auto pause = parts_.timings.pollInterval;
        if (reply) {
            auto last = finalWord(*reply, run);
            if (last) co_return std::move(*last);
            if (scheduler_.wallNow() - since > parts_.timings.pollDeadline) fail(TranscriptionError::TimedOut{});
            outage.end();
        } else {
            if (isTaskLost(error)) parts_.pending.remove(run.url());
            if (!isTransient(error) || outage.isTooLong()) std::rethrow_exception(error);
            pause = outage.nextPause();
            log("[Transcription] Poll #" + std::to_string(n) + " failed (" + code(error) + "), retrying in " +
                secondsText(pause) + "s");
        }
        co_await scheduler_.sleep(pause);
    }
}

/// Absent while the server still works on the task.
std::optional<TranscribeResponse> TranscriptionPipeline::finalWord(const TaskStatusResponse& reply,
                                                                   TranscriptionRun& run) {
    if (reply.status == "pending" || reply.status == "processing") return std::nullopt;
    if (reply.status == "completed") {
        parts_.pending.take(run.url());
        return result(reply, run);
    }
    if (reply.status == "failed") {
        parts_.pending.remove(run.url());
        log("[Transcription] Failed: " + reply.error.value_or("Unknown"));
        fail(TranscriptionError::TranscriptionFailed{reply.error.value_or("Unknown error")});
    }
    log("[Transcription] Unknown status: " + reply.status);
    fail(TranscriptionError::ServerError{"Unknown status: " + reply.status});
}

TranscribeResponse TranscriptionPipeline::result(const TaskStatusResponse& reply, TranscriptionRun& run) {
    run.stage = TranscriptionStage::result;
    const auto text = reply.text.value_or("");
    log("[Transcription] Completed! Text length: " + std::to_string(base::characterCount(text)));
    if (reply.usage) parts_.state.currentUsage.set(reply.usage);
    if (base::trimmed(text).empty()) fail(TranscriptionError::NoSpeech{});
    if (!reply.durationSeconds || !reply.provider || !reply.usage)
        fail(TranscriptionError::ServerError{"Incomplete result from server"});
    return {text, *reply.durationSeconds, *reply.provider, *reply.usage, reply.title, reply.gist};
}

}  // namespace tessivox::transcription
