#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "app/Console.h"
#include "app/ExitCode.h"
#include "app/InterruptibleWork.h"
#include "app/LongWork.h"
#include "base/Scheduler.h"
#include "base/Task.h"
#include "base/ports/Files.h"
#include "transcription/TranscriptionService.h"

namespace tessivox::app {

/// The commands that ask a server for something. One at a time; main thread.
class TranscriptionCommands {
public:
    struct Parts {
        base::Scheduler& scheduler;
        base::Files& files;
        transcription::TranscriptionService& service;
        Console& console;
        /// Whether `tessivox run` is there, which goes on with what other processes leave.
        std::function<bool()> isSomebodyRunning;
    };
    explicit TranscriptionCommands(Parts parts);

    struct Request {
        std::filesystem::path recording;
        transcription::TranscriptionSource source = transcription::TranscriptionSource::manual;
        std::optional<base::Duration> duration{};  ///< of the recording, if known
        bool waits = false;                        ///< even if somebody else could fetch the transcript
        bool summarizes = false;                   ///< afterwards
        bool tellsRecording = false;               ///< its path first, under the name that it has then
    };
    /// `tessivox transcribe`, and what follows a recording or an import. Writes the transcript's path to standard
    /// output once it is there. Unless it is told to wait, it ends when the server has the recording, if somebody else
    /// is there to fetch the result.
    base::Task<ExitCode> transcribe(Request request);
    /// `tessivox summarize`: writes the summary's path to standard output.
    base::Task<ExitCode> summarize(std::filesystem::path recording);
    /// `tessivox usage`.
    base::Task<ExitCode> usage();

    /// Ctrl-C and its relatives: ends the command soon, and says what is left for the next time.
    void interrupt() { work_.stop(); }

private:
    Parts parts_;
    InterruptibleWork work_;
    std::filesystem::path recording_;  ///< where it is now: a title may rename it
    bool isUploaded_ = false;          ///< by this process
    bool isKnownToServer_ = false;
    bool isHandedOver_ = false;
    bool isIncomplete_ = false;  ///< the summary that was to follow failed
    base::Subscription progress_;

    base::Task<ExitCode> transcribeNow(Request request);
    base::Task<bool> carriedOut(Request request);
    base::Task<void> makeTranscript(Request request, LongWork& display);
    base::Task<void> waitForOther(LongWork& display);
    void showProgress(bool waits, LongWork& display);
    base::Task<void> makeSummary(std::filesystem::path recording);
    base::Task<bool> summaryMade(std::filesystem::path recording);
    ExitCode tellWhatIsLeft();
};

}  // namespace tessivox::app
