#include "app/ControlCommand.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "base/Text.h"
#include "core/AppState.h"
#include "detection/RecordingController.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;
using base::filled;
using base::localized;
using core::ProgramAnswer;
using core::ProgramFailure;
using core::ProgramRequest;
using core::ProgramStatus;
using nlohmann::ordered_json;

/// A program that has just been started has its lock before it can be reached.
constexpr int kTries = 30;
constexpr base::Duration kBetweenTries = 100ms;
/// How long another command may hold the lock while it looks whether somebody does.
constexpr base::Duration kLookingTime = 20ms;

bool isNobodyThere(const ProgramAnswer& answer) {
    const auto* failure = std::get_if<ProgramFailure>(&answer);
    return failure &&
           (failure->kind == ProgramFailure::Kind::notRunning || failure->kind == ProgramFailure::Kind::noBus);
}

std::string hangText() {
    return localized(
        "Tessivox runs but does not answer: wait a little, or end it with kill -KILL and start it again, which "
        "finishes "
        "a recording that ran.");
}

/// Why a program that runs has not done it.
std::string failureText(const ProgramFailure& failure) {
    switch (failure.kind) {
        case ProgramFailure::Kind::noBus:
            return localized(
                "Tessivox runs, but there is no session bus here to reach it over: give the command in the desktop "
                "session in which it was started.");
        case ProgramFailure::Kind::notRunning:
            return localized(
                "Tessivox runs, but is not on this session bus: give the command in the desktop session in which it "
                "was started.");
        case ProgramFailure::Kind::noAnswer:
            return hangText();
        case ProgramFailure::Kind::ended:
            return localized("Tessivox ended before it answered; its next start finishes a recording that ran.");
        case ProgramFailure::Kind::refused:
            return printable(failure.sentence);
    }
    return {};
}

base::Task<ProgramAnswer> askPatiently(ControlParts parts, ProgramRequest request) {
    for (int tries = 1;; ++tries) {
        auto asking = parts.program.ask(request);
        auto answer = co_await asking;
        const auto* failure = std::get_if<ProgramFailure>(&answer);
        const bool isAway = failure && failure->kind == ProgramFailure::Kind::notRunning;
        if (!isAway || tries == kTries || !parts.isSomebodyRunning()) co_return answer;
        co_await parts.scheduler.sleep(kBetweenTries);
    }
}

std::string fileText(const ProgramStatus& status) { return status.file ? printable(status.file->string()) : ""; }

ExitCode tell(const ControlOptions& options, const ProgramStatus& status, Console& console) {
    if (options.request == ProgramRequest::status) {
        console.result(options.asJSON ? statusJSON(&status) : statusText(status));
    } else if (status.isRecording) {
        console.message(localized(status.isPaused ? "The recording pauses." : "Tessivox records."));
    } else if (status.file) {
        console.result(status.file->string() + "\n");
        if (status.missingSeconds > 0) {
            console.message(detection::missingText(status.missingSeconds));
            return ExitCode::failed;
        }
    } else {
        console.message(localized("Nothing was recorded."));
        return ExitCode::nothingRecorded;
    }
    return ExitCode::done;
}

ExitCode tellNotRunning(const ControlOptions& options, Console& console) {
    if (options.asJSON) console.result(statusJSON(nullptr));
    console.message(localized("Tessivox is not running: start it with tessivox run --headless."));
    return ExitCode::notRunning;
}

}  // namespace

base::Task<ExitCode> controlCommand(ControlOptions options, ControlParts parts) {
    auto asking = askPatiently(parts, options.request);
    const auto answer = co_await asking;
    if (const auto* status = std::get_if<ProgramStatus>(&answer)) co_return tell(options, *status, parts.console);
    if (isNobodyThere(answer) && !parts.isSomebodyRunning()) co_return tellNotRunning(options, parts.console);
    parts.console.message(failureText(std::get<ProgramFailure>(answer)));
    co_return ExitCode::failed;
}

base::Task<ExitCode> reachFirst(ControlParts parts, std::function<bool()> takesLock) {
    auto asking = parts.program.ask(ProgramRequest::activate);
    const auto answer = co_await asking;
    if (isNobodyThere(answer)) {
        co_await parts.scheduler.sleep(kLookingTime);
        if (takesLock()) co_return ExitCode::done;
    }
    const auto* failure = std::get_if<ProgramFailure>(&answer);
    const bool isHanging = failure && failure->kind == ProgramFailure::Kind::noAnswer;
    if (isHanging)
        parts.console.message(hangText());
    else if (failure)
        parts.console.message(localized("Tessivox is already running."));
    else
        parts.console.message(localized("Tessivox is already running; it was asked to come forward."));
    co_return isHanging ? ExitCode::failed : ExitCode::done;
}

std::string statusText(const ProgramStatus& status) {
    std::string text;
    const auto time = core::AppState::formattedDuration(status.seconds);
    if (!status.isRecording)
        text = localized("Tessivox is ready; nothing is being recorded.\n");
    else if (status.isPaused)
        text = filled(localized("The recording pauses at {0}: {1}\n"), {time, fileText(status)});
    else
        text = filled(localized("Recording, {0} so far: {1}\n"), {time, fileText(status)});
    return status.isCallDetected ? text + localized("A call is going on.\n") : text;
}

std::string statusJSON(const ProgramStatus* status) {
    auto all = ordered_json::object();
    all["isRunning"] = status != nullptr;
    const auto shown = status ? *status : ProgramStatus{};
    all["isRecording"] = shown.isRecording;
    all["isPaused"] = shown.isPaused;
    all["isCallDetected"] = shown.isCallDetected;
    all["duration"] = shown.seconds;
    all["path"] = shown.file ? ordered_json(shown.file->string()) : ordered_json();
    all["url"] = shown.file ? ordered_json("file://" + base::percentEncoded(shown.file->native())) : ordered_json();
    return all.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tessivox::app
