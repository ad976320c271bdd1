#include "app/RecordCommand.h"

#include <exception>
#include <utility>
#include <variant>

#include "audio/LiveSource.h"
#include "audio/RecordingFiles.h"
#include "base/Text.h"
#include "detection/RecordingController.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using namespace std::chrono_literals;

constexpr base::Duration kRedrawInterval = 100ms;

std::string nothingRecorded() { return localized("Nothing was recorded: no sound arrived before the end."); }

/// Tells the user of an outcome and gives what the program ends with.
struct Telling {
    Console& console;

    ExitCode operator()(const audio::Saved& saved) const {
        console.result(saved.url.string() + "\n");
        if (saved.missingSeconds <= 0) return ExitCode::done;
        console.message(detection::missingText(saved.missingSeconds));
        return ExitCode::failed;
    }
    ExitCode operator()(const audio::ConversionFailed& failed) const {
        console.message(detection::failureText(failed));
        return ExitCode::failed;
    }
    ExitCode operator()(const audio::Empty&) const {
        console.message(nothingRecorded());
        return ExitCode::nothingRecorded;
    }
};

}  // namespace

RecordCommand::RecordCommand(RecordOptions options, Parts parts, Endings endings)
    : options_(std::move(options)),
      parts_(std::move(parts)),
      endings_(std::move(endings)),
      errors_(parts_.state.lastError.observe([this](const auto& error) {
          if (error) parts_.console.message(error->description());
      })),
      keys_(parts_.console.onKey([this](char key) { onKey(key); })),
      scope_(parts_.scheduler) {
    view_.takesKeys = parts_.console.takesKeys();
    if (parts_.console.showsStatus()) redraw_ = parts_.scheduler.every(kRedrawInterval, [this] { draw(); });
    scope_.start(run());
}

base::Task<void> RecordCommand::run() {
    try {
        const auto code = co_await record();
        finish(code);
    } catch (const std::exception& error) {
        parts_.console.message(error.what());
        finish(ExitCode::failed);
    }
}

base::Task<ExitCode> RecordCommand::record() {
    if (const auto refusal = co_await prepare()) {
        parts_.console.message(refusal->sentence);
        co_return refusal->code;
    }
    if (isStopWanted_) {
        parts_.console.message(nothingRecorded());
        co_return ExitCode::nothingRecorded;
    }
    url_ = co_await parts_.recorder.start(options_.output);
    setPhase(RecordView::Phase::recording);
    runClock();
    co_await stopWanted_;
    stopClock();
    savingSince_ = parts_.scheduler.now();
    setPhase(RecordView::Phase::saving);
    const auto outcome = co_await parts_.recorder.stop();
    endProgress();
    co_return told(outcome);
}

ExitCode RecordCommand::told(const audio::RecordingStopOutcome& outcome) {
    const auto* saved = std::get_if<audio::Saved>(&outcome);
    if (saved && options_.transcribes && saved->missingSeconds <= 0) {
        savedForMore_ = saved->url;
        return ExitCode::done;
    }
    return std::visit(Telling{parts_.console}, outcome);
}

base::Task<std::optional<Refusal>> RecordCommand::prepare() {
    auto& settings = parts_.settings;
    if (auto refusal = applyOptions(options_, settings)) co_return refusal;
    settings.ensureRecordingsFolder();
    auto refusal = options_.output ? outputRefusal(parts_.files, *options_.output, settings.saveSeparateTracks.get())
                                   : folderRefusal(parts_.files, settings.recordingsDirectoryPath.get());
    if (refusal) co_return refusal;

    const auto snapshot = co_await parts_.devices.snapshot();
    if (!snapshot.serverReachable) co_return Refusal{audio::noSoundServer().description(), ExitCode::failed};
    if (options_.microphone && options_.microphone->kind == MicrophoneChoice::Kind::named) {
        const auto found = findMicrophone(snapshot, options_.microphone->name);
        if (const auto* unknown = std::get_if<Refusal>(&found)) co_return *unknown;
        settings.selectedMicrophoneID.set(std::get<std::string>(found));
    }
    co_return std::nullopt;
}

void RecordCommand::finish(ExitCode code) {
    if (std::exchange(isOver_, true)) return;
    endProgress();
    endings_.finished(code);
}

void RecordCommand::endProgress() {
    lengthReached_.reset();
    redraw_.reset();
    keys_.reset();
    parts_.console.status("");
}

void RecordCommand::requestStop() {
    isStopWanted_ = true;
    stopWanted_.succeed(true);
}

void RecordCommand::interrupt() {
    if (isOver_) return;
    if (std::exchange(isInterrupted_, true)) return abandon();
    if (savingSince_)
        parts_.console.message(
            localized("The recording is being saved; Ctrl-C again leaves it to be recovered later."));
    requestStop();
}

void RecordCommand::abandon() {
    isOver_ = true;
    endProgress();
    parts_.console.message(whatIsLeft());
    endings_.abandoned();
}

std::string RecordCommand::whatIsLeft() const {
    if (url_) {
        const audio::RecordingFiles names(parts_.incompleteFolder, *url_);
        const auto temporary = names.temporary(audio::Track::stereo);
        if (parts_.files.exists(temporary))
            return filled(localized("Left before it was saved: what was recorded is in \"{0}\"."),
                          {temporary.string()});
        if (parts_.files.exists(*url_)) return filled(localized("The recording is in \"{0}\"."), {url_->string()});
    }
    return localized("Left before anything was recorded.");
}

void RecordCommand::onKey(char key) {
    if (savingSince_) return;
    if (key == 'q' || key == 'Q') requestStop();
    if (key == 'p' || key == 'P') togglePause();
}

void RecordCommand::togglePause() {
    if (view_.phase == RecordView::Phase::recording) {
        parts_.recorder.pause();
        stopClock();
        setPhase(RecordView::Phase::paused);
    } else if (view_.phase == RecordView::Phase::paused) {
        parts_.recorder.resume();
        runClock();
        setPhase(RecordView::Phase::recording);
    }
}

void RecordCommand::runClock() {
    runningSince_ = parts_.scheduler.now();
    if (options_.length)
        lengthReached_ = parts_.scheduler.after(*options_.length - elapsedBefore_, [this] { requestStop(); });
}

void RecordCommand::stopClock() {
    elapsedBefore_ = elapsed();
    runningSince_.reset();
    lengthReached_.reset();
}

base::Duration RecordCommand::elapsed() const {
    return runningSince_ ? elapsedBefore_ + (parts_.scheduler.now() - *runningSince_) : elapsedBefore_;
}

void RecordCommand::setPhase(RecordView::Phase phase) {
    view_.phase = phase;
    draw();
}

void RecordCommand::draw() {
    if (!redraw_) return;
    const auto level = [](bool isOn, const auto& source) { return isOn ? std::optional(source.get()) : std::nullopt; };
    view_.elapsed = elapsed();
    view_.microphoneLevel = level(parts_.settings.recordMicrophone.get(), parts_.microphoneLevel);
    view_.systemAudioLevel = level(parts_.settings.recordSystemAudio.get(), parts_.systemAudioLevel);
    if (savingSince_) view_.saving = parts_.scheduler.now() - *savingSince_;
    view_.encodingProgress = parts_.recorder.encodingProgress();
    parts_.console.status(recordLine(view_, parts_.console.columns()));
}

}  // namespace tessivox::app
