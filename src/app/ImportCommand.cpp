#include "app/ImportCommand.h"

#include <cmath>
#include <optional>
#include <utility>

#include "base/Error.h"
#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using Path = std::filesystem::path;

std::string percentText(double share) { return std::to_string(std::lround(std::floor(100 * share))) + " %"; }

/// Which of several files it is.
std::string countText(std::size_t number, std::size_t of) {
    return of == 1 ? std::string() : "[" + std::to_string(number) + "/" + std::to_string(of) + "] ";
}

}  // namespace

ImportCommand::ImportCommand(Parts parts)
    : scheduler_(parts.scheduler),
      files_(parts.importer.files),
      settings_(parts.importer.settings),
      transcriptions_(parts.transcriptions),
      console_(parts.console),
      importer_(withOurs(std::move(parts.importer))),
      work_(scheduler_) {}

library::AudioFileImporter::Parts ImportCommand::withOurs(library::AudioFileImporter::Parts parts) {
    parts.startTranscription = [this](const Path& recording, double duration) {
        waiting_.push_back({recording, duration});
    };
    return parts;
}

base::Task<ExitCode> ImportCommand::run(std::vector<Path> files) {
    for (std::size_t place = 0; place < files.size() && !isInterrupted_; ++place) {
        auto importing = importFile(files[place], countText(place + 1, files.size()));
        co_await importing;
    }
    for (const auto& imported : std::exchange(waiting_, {})) {
        auto transcribing = transcribe(imported);
        if (!isInterrupted_) co_await transcribing;
    }
    co_return hasFailed_ || isInterrupted_ ? ExitCode::failed : ExitCode::done;
}

base::Task<void> ImportCommand::importFile(Path file, std::string count) {
    LongWork display(scheduler_, console_);
    const auto step = importer_.importProgress.observe([&](const auto& text) {
        if (text) display.setStage(count + *text);
    });
    const auto fraction = importer_.fractionDone.observe([&](const auto& share) {
        if (share) display.setDetail(percentText(*share));
    });
    std::optional<std::string> problem;
    try {
        if (!files_.exists(file)) throw base::Error("app", 4, localized("There is no such file."));
        auto importing = importNow(file);
        auto working = work_.carriedOut(std::move(importing));
        const bool isDone = co_await working;
        if (!isDone) problem = localized("Interrupted: nothing of it was imported.");
    } catch (const base::Error& error) {
        problem = error.description();
    }
    if (problem) tellFailure(file, *problem);
}

base::Task<void> ImportCommand::importNow(Path file) {
    auto importing = importer_.importAudioFile(std::move(file));
    const auto recording = co_await importing;
    console_.result(recording.string() + "\n");
}

base::Task<void> ImportCommand::transcribe(Imported imported) {
    TranscriptionCommands::Request request;
    request.recording = imported.recording;
    request.source = transcription::TranscriptionSource::importFile;
    request.duration = base::fromSeconds(imported.duration);
    request.summarizes = settings_.autoSummarize.get();
    try {
        auto transcribing = transcriptions_.transcribe(std::move(request));
        const auto code = co_await transcribing;
        hasFailed_ = hasFailed_ || code != ExitCode::done;
    } catch (const base::Error& error) {
        tellFailure(imported.recording, error.description());
    }
}

void ImportCommand::tellFailure(const Path& file, const std::string& reason) {
    hasFailed_ = true;
    console_.message(filled(localized("\"{0}\": {1}"), {printable(file.filename().string()), reason}));
}

void ImportCommand::interrupt() {
    isInterrupted_ = true;
    work_.stop();
    transcriptions_.interrupt();
}

}  // namespace tessivox::app
