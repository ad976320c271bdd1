#include "app/TranscriptionCommands.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "app/LibraryCommands.h"
#include "base/AtEnd.h"
#include "base/Error.h"
#include "base/Text.h"
#include "library/RecordingName.h"
#include "transcription/TranscriptionError.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using transcription::TranscriptionError;
using transcription::TranscriptionStatus;
using Path = std::filesystem::path;
using namespace std::chrono_literals;

/// How often it is looked whether another process has finished a transcript.
constexpr base::Duration kLookInterval = 1s;

Path transcriptOf(const Path& recording) { return library::sibling(recording, library::kSidecarExtensions[0]); }
Path summaryOf(const Path& recording) { return library::sibling(recording, library::kSidecarExtensions[1]); }

std::string shownName(const Path& file) { return printable(file.filename().string()); }

/// What is typed to do that with the file.
std::string commandFor(const std::string& command, const Path& file) {
    return "tessivox " + command + " " + shellWord(printable(file.string()));
}

void requireRecording(const base::Files& files, const Path& file) {
    if (!files.exists(file)) throw noRecording(file);
    auto ending = file.extension().string();
    std::ranges::transform(ending, ending.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
    });
    if (ending == library::kAudioExtension) return;
    throw base::Error("app", 2,
                      filled(localized("\"{0}\" is no recording: \"{1}\" makes one of a sound file."),
                             {shownName(file), commandFor("import", file)}));
}

/// Whether it is there already. It may have been edited, so nothing puts another in its place.
bool isKept(const base::Files& files, const Path& result, Console& console) {
    if (!files.exists(result)) return false;
    console.message(
        filled(localized("\"{0}\" is there already; for another, move it away first."), {printable(result.string())}));
    return true;
}

template <typename Case>
bool isError(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const TranscriptionError& known) {
        return known.as<Case>() != nullptr;
    } catch (...) {
        return false;
    }
    return false;
}

std::string usageText(const transcription::UsageInfo& usage) {
    auto text = filled(localized("{0} of {1} transcriptions used, {2} left"),
                       {std::to_string(usage.used), std::to_string(usage.limit), std::to_string(usage.remaining)});
    if (usage.resetsAt) text += ", " + filled(localized("counted anew from {0}"), {printable(*usage.resetsAt)});
    text += "\n";
    if (!usage.canTranscribe) text += localized("The server takes no new ones for now.") + "\n";
    return text;
}

}  // namespace

TranscriptionCommands::TranscriptionCommands(Parts parts) : parts_(std::move(parts)), work_(parts_.scheduler) {}

base::Task<ExitCode> TranscriptionCommands::transcribe(Request request) {
    recording_ = request.recording;
    const bool tellsRecording = request.tellsRecording;
    requireRecording(parts_.files, recording_);
    auto code = ExitCode::failed;
    std::exception_ptr error;
    try {
        auto working = transcribeNow(std::move(request));
        code = co_await working;
    } catch (...) {
        error = std::current_exception();
    }
    if (tellsRecording) parts_.console.result(recording_.string() + "\n");
    if (isError<TranscriptionError::NoSpeech>(error)) {
        parts_.console.message(base::describe(error));
        co_return ExitCode::done;
    }
    if (error) std::rethrow_exception(error);
    if (parts_.files.exists(transcriptOf(recording_))) parts_.console.result(transcriptOf(recording_).string() + "\n");
    co_return code;
}

base::Task<ExitCode> TranscriptionCommands::transcribeNow(Request request) {
    if (isKept(parts_.files, transcriptOf(recording_), parts_.console)) co_return ExitCode::done;
    isUploaded_ = isKnownToServer_ = isHandedOver_ = isIncomplete_ = false;
    auto working = carriedOut(std::move(request));
    const bool isDone = co_await working;
    if (!isDone) co_return tellWhatIsLeft();
    co_return isIncomplete_ ? ExitCode::failed : ExitCode::done;
}

base::Task<bool> TranscriptionCommands::carriedOut(Request request) {
    LongWork display(parts_.scheduler, parts_.console);
    display.setStage(localized("Preparing"));
    const base::AtEnd atEnd([this] { progress_.reset(); });
    showProgress(request.waits, display);
    auto making = makeTranscript(std::move(request), display);
    auto working = work_.carriedOut(std::move(making));
    co_return co_await working;
}

void TranscriptionCommands::showProgress(bool waits, LongWork& display) {
    progress_ = parts_.service.activeTranscriptions.observe([this, waits, &display](const auto& all) {
        const auto found = all.find(recording_);
        const auto status = found == all.end() ? TranscriptionStatus::none : found->second;
        if (status == TranscriptionStatus::uploading) {
            display.setStage(localized("Uploading"));
            isUploaded_ = true;
        } else if (status == TranscriptionStatus::processing) {
            display.setStage(localized("Transcribing"));
            isKnownToServer_ = true;
            // A task that was saved before has been waited for already, perhaps by them.
            if (!isUploaded_ || waits || !parts_.isSomebodyRunning()) return;
            isHandedOver_ = true;
            work_.stop();
        }
    });
}

base::Task<void> TranscriptionCommands::makeTranscript(Request request, LongWork& display) {
    bool isDone = false;
    while (!isDone) {
        std::exception_ptr error;
        try {
            auto transcribing = parts_.service.transcribe(recording_, request.source, request.duration);
            recording_ = co_await transcribing;
            isDone = true;
        } catch (...) {
            error = std::current_exception();
        }
        const bool isBusy = isError<TranscriptionError::AlreadyInProgress>(error);
        if (error && !(isBusy && request.waits)) std::rethrow_exception(error);
        if (isBusy) {
            co_await waitForOther(display);
            isDone = parts_.files.exists(transcriptOf(recording_));
        }
    }
    if (!request.summarizes) co_return;
    display.setStage(localized("Summarizing"));
    try {
        co_await makeSummary(recording_);
    } catch (const base::Error& error) {
        // The transcript stands.
        parts_.console.message(error.description());
        isIncomplete_ = true;
    }
}

/// Another process works on the recording.
base::Task<void> TranscriptionCommands::waitForOther(LongWork& display) {
    display.setStage(localized("Waiting for another Tessivox"));
    isKnownToServer_ = true;
    const auto before = parts_.files.status(recording_);
    co_await parts_.scheduler.sleep(kLookInterval);
    if (parts_.files.exists(recording_)) co_return;
    // The title of its transcript may have renamed it.
    const auto folder = recording_.parent_path();
    for (const auto& name : parts_.files.list(folder)) {
        const auto status = parts_.files.status(folder / name);
        if (!before || !status || status->inode != before->inode || status->device != before->device) continue;
        recording_ = folder / name;
        co_return;
    }
    throw noRecording(recording_);
}

base::Task<void> TranscriptionCommands::makeSummary(Path recording) {
    auto summarizing = parts_.service.summaries().summarizeManually(std::move(recording));
    recording_ = co_await summarizing;
}

ExitCode TranscriptionCommands::tellWhatIsLeft() {
    const auto again = commandFor("transcribe", recording_);
    if (isHandedOver_) {
        parts_.console.message(
            filled(localized("The server has \"{0}\"; \"tessivox run\", which is running, saves the transcript."),
                   {shownName(recording_)}));
        return ExitCode::done;
    }
    if (parts_.files.exists(transcriptOf(recording_))) {
        parts_.console.message(localized("Interrupted: no summary was made."));
        return ExitCode::failed;
    }
    const auto* sentence = isKnownToServer_
                               ? "Interrupted, but the server goes on: \"{0}\" or the next \"tessivox run\" "
                                 "fetches the transcript."
                               : "Interrupted before the server had the recording: \"{0}\" begins anew.";
    parts_.console.message(filled(localized(sentence), {again}));
    return ExitCode::failed;
}

base::Task<ExitCode> TranscriptionCommands::summarize(Path recording) {
    requireRecording(parts_.files, recording);
    recording_ = recording;
    if (isKept(parts_.files, summaryOf(recording), parts_.console)) {
        parts_.console.result(summaryOf(recording).string() + "\n");
        co_return ExitCode::done;
    }
    if (!parts_.files.exists(transcriptOf(recording)))
        throw base::Error("app", 3,
                          filled(localized("\"{0}\" has no transcript yet: \"{1}\" makes one."),
                                 {shownName(recording), commandFor("transcribe", recording)}));
    auto making = summaryMade(std::move(recording));
    const bool isDone = co_await making;
    if (!isDone) {
        parts_.console.message(localized("Interrupted: no summary was made."));
        co_return ExitCode::failed;
    }
    parts_.console.result(summaryOf(recording_).string() + "\n");
    co_return ExitCode::done;
}

base::Task<bool> TranscriptionCommands::summaryMade(Path recording) {
    LongWork display(parts_.scheduler, parts_.console);
    display.setStage(localized("Summarizing"));
    auto making = makeSummary(std::move(recording));
    auto working = work_.carriedOut(std::move(making));
    co_return co_await working;
}

base::Task<ExitCode> TranscriptionCommands::usage() {
    auto asking = parts_.service.refreshUsage();
    auto working = work_.carriedOut(std::move(asking));
    const bool isDone = co_await working;
    if (!isDone) co_return ExitCode::failed;
    if (const auto usage = parts_.service.currentUsage.get()) parts_.console.result(usageText(*usage));
    auto fetching = parts_.service.deviceTokenSettled();
    auto waiting = work_.carriedOut(std::move(fetching));
    co_await waiting;
    co_return ExitCode::done;
}

}  // namespace tessivox::app
