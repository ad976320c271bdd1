#pragma once

#include <functional>
#include <vector>

#include "base/Signal.h"
#include "base/Task.h"
#include "core/AppState.h"
#include "core/ports/RunningProgram.h"
#include "detection/RecordingController.h"

namespace tessivox::app {

/// What other processes may do with the program that runs, and see of it. Main thread.
class ProgramControl {
public:
    /// Both outlive it.
    ProgramControl(core::AppState& state, detection::RecordingController& controller)
        : state_(state), controller_(controller) {}

    core::ProgramStatus status() const;
    /// Gives the status afterwards. Throws base::Error with the sentence of a refusal, or of a recording that could not
    /// be encoded. A start or a stop goes on to its end only as long as its task lives.
    base::Task<core::ProgramStatus> carryOut(core::ProgramRequest request);
    /// Called whenever the status changes, but for the seconds.
    [[nodiscard]] std::vector<base::Subscription> onChange(const std::function<void()>& handler);

private:
    core::AppState& state_;
    detection::RecordingController& controller_;

    base::Task<core::ProgramStatus> start();
    base::Task<core::ProgramStatus> stop();
};

}  // namespace tessivox::app
