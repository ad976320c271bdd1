#include "platform/linux/pulse/Operation.h"

#include <exception>

#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {

base::Task<void> awaitAnswer(base::Scheduler& scheduler, base::Completion<bool> answer) {
    const base::Timer limit = scheduler.after(
        kAnswerLimit, [answer] { answer.fail(std::make_exception_ptr(makeError(PulseFailure::noAnswer))); });
    co_await answer;
}

Operation::~Operation() {
    if (!operation_) return;
    const Loop::Lock lock(loop_);
    pa_operation_set_state_callback(operation_, nullptr, nullptr);
    pa_operation_cancel(operation_);
    pa_operation_unref(operation_);
}

void Operation::start(pa_operation* operation) {
    operation_ = operation;
    if (operation_) {
        pa_operation_set_state_callback(operation_, &Operation::onState, this);
    } else {
        answer_.fail(std::make_exception_ptr(makeError(PulseFailure::connectionLost)));
    }
}

base::Task<void> Operation::finished() { return awaitAnswer(scheduler_, answer_); }

void Operation::onState(pa_operation* operation, void* self) {
    auto& me = *static_cast<Operation*>(self);
    // A connection that breaks cancels its operations.
    const bool isAnswered = pa_operation_get_state(operation) == PA_OPERATION_DONE;
    me.scheduler_.post([answer = me.answer_, isAnswered] {
        if (isAnswered) return answer.succeed(true);
        answer.fail(std::make_exception_ptr(makeError(PulseFailure::connectionLost)));
    });
}

}  // namespace tessivox::pulse
