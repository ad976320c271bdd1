#pragma once

#include <pulse/operation.h>

#include <memory>

#include "base/Completion.h"
#include "base/Scheduler.h"
#include "platform/linux/pulse/Loop.h"

namespace tessivox::pulse {

/// How long the server may take to answer before it counts as hung.
inline constexpr base::Duration kAnswerLimit = std::chrono::seconds(5);

/// Waits for an answer, for at most kAnswerLimit; then throws PulseFailure::noAnswer. Main thread.
base::Task<void> awaitAnswer(base::Scheduler& scheduler, base::Completion<bool> answer);

/// One question to the server under way. Destroying it takes the question back: none of its callbacks runs any more.
/// Main thread.
class Operation {
public:
    Operation(base::Scheduler& scheduler, Loop& loop) : scheduler_(scheduler), loop_(loop) {}
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    ~Operation();

    /// Takes what a libpulse call returned; the loop's lock is held since before that call.
    void start(pa_operation* operation);
    /// Ends when the server has answered; throws base::Error if it never will.
    base::Task<void> finished();

private:
    base::Scheduler& scheduler_;
    Loop& loop_;
    pa_operation* operation_ = nullptr;
    base::Completion<bool> answer_;

    static void onState(pa_operation* operation, void* self);
};

}  // namespace tessivox::pulse
