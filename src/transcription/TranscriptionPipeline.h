#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
#include "base/TaskQueue.h"
#include "base/ports/Files.h"
#include "transcription/PendingTranscriptionStore.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionRun.h"
#include "transcription/TranscriptionState.h"
#include "transcription/TranscriptionTimings.h"
#include "transcription/ports/AudioDownsampler.h"

namespace tessivox::transcription {

/// The way of one recording to the server and of its text back. Operations throw TranscriptionError, or what a file
/// operation threw; destroying their tasks aborts requests and removes the upload copy. Main thread.
class TranscriptionPipeline {
public:
    /// What is uploaded at most, in bytes: the copy of 70 hours, or a recording of which no copy could be made.
    static constexpr std::size_t kLargestUpload = std::size_t{1} << 30;

    struct Parts {
        base::Runtime& runtime;
        base::Files& files;
        ServerClient& client;
        AudioDownsampler& downsampler;
        PendingTranscriptionStore& pending;
        TranscriptionState& state;
        TranscriptionTimings timings;
    };
    explicit TranscriptionPipeline(Parts parts);

    /// Uploads, or goes on with the saved task. The task has left the store when this ends with the server's last word,
    /// after a result only until PendingTranscriptionStore::settle().
    base::Task<TranscribeResponse> runTranscription(TranscriptionRun& run, std::optional<PendingTask> entry);
    /// Throws limitExceeded if the server has said that it will refuse an upload.
    void requireQuota() const;

private:
    Parts parts_;
    base::Scheduler& scheduler_;
    std::unique_ptr<base::TaskQueue> queue_;

    struct UploadFile;
    class Outage;

    base::Task<std::optional<TranscribeResponse>> pollSavedTask(TranscriptionRun& run, PendingTask entry);
    base::Task<std::string> submitAudio(TranscriptionRun& run);
    base::Task<std::unique_ptr<UploadCopy>> makeUploadCopy(TranscriptionRun& run);
    base::Task<Upload> readUpload(TranscriptionRun& run, const UploadCopy* copy);
    base::Task<std::string> sendWithRetries(TranscriptionRun& run, Upload upload);
    base::Task<TranscribeResponse> pollTask(std::string taskId, base::WallTime since, TranscriptionRun& run);
    std::optional<TranscribeResponse> finalWord(const TaskStatusResponse& reply, TranscriptionRun& run);
    TranscribeResponse result(const TaskStatusResponse& reply, TranscriptionRun& run);
    void logCopy(const TranscriptionRun& run, const UploadCopy& copy) const;
};

}  // namespace tessivox::transcription
