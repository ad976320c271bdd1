#include "app/ProgramControl.h"

#include <variant>

#include "audio/RecordingStopOutcome.h"
#include "base/Error.h"

namespace tessivox::app {
namespace {

using core::ProgramRequest;
using core::ProgramStatus;
using detection::RecordingController;

void throwIfRefused(const RecordingController::Refusal& refusal) {
    if (refusal) throw base::Error("control", 1, *refusal);
}

}  // namespace

ProgramStatus ProgramControl::status() const {
    ProgramStatus status;
    status.isRecording = state_.isRecording.get();
    status.isPaused = state_.isPaused.get();
    status.isCallDetected = state_.isCallDetected.get();
    status.seconds = status.isRecording ? state_.recordingDuration.get() : 0;
    status.file = state_.currentRecordingURL.get();
    return status;
}

base::Task<ProgramStatus> ProgramControl::carryOut(ProgramRequest request) {
    switch (request) {
        case ProgramRequest::start:
            co_return co_await start();
        case ProgramRequest::stop:
            co_return co_await stop();
        case ProgramRequest::toggle:
            if (state_.isRecording.get() || controller_.isStarting()) co_return co_await stop();
            co_return co_await start();
        case ProgramRequest::pause:
            throwIfRefused(controller_.pauseRecording());
            break;
        case ProgramRequest::resume:
            throwIfRefused(controller_.resumeRecording());
            break;
        case ProgramRequest::status:
        case ProgramRequest::activate:  // there is nothing that could come forward
            break;
    }
    co_return status();
}

base::Task<ProgramStatus> ProgramControl::start() {
    auto starting =
        controller_.startRecording(detection::CaptureChoice::asSettings, detection::RecordingSource::manual);
    const auto refusal = co_await starting;
    throwIfRefused(refusal);
    co_return status();
}

base::Task<ProgramStatus> ProgramControl::stop() {
    auto stopping = controller_.stopRecording();
    const auto stopped = co_await stopping;
    throwIfRefused(stopped.refusal);
    if (const auto* failed = std::get_if<audio::ConversionFailed>(&stopped.outcome))
        throw base::Error("control", 1, detection::failureText(*failed));
    auto after = status();
    // Another recording may have begun meanwhile; whoever asked for the end of this one is told of this one.
    after.file.reset();
    if (const auto* saved = std::get_if<audio::Saved>(&stopped.outcome)) {
        after.file = saved->url;
        after.missingSeconds = saved->missingSeconds;
    }
    co_return after;
}

std::vector<base::Subscription> ProgramControl::onChange(const std::function<void()>& handler) {
    std::vector<base::Subscription> all;
    const auto changed = [handler](const auto&) { handler(); };
    all.push_back(state_.isRecording.observe(changed));
    all.push_back(state_.isPaused.observe(changed));
    all.push_back(state_.isCallDetected.observe(changed));
    all.push_back(state_.currentRecordingURL.observe(changed));
    return all;
}

}  // namespace tessivox::app
