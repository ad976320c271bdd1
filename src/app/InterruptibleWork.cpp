#include "app/InterruptibleWork.h"

#include <utility>

namespace tessivox::app {

base::Task<bool> InterruptibleWork::carriedOut(base::Task<void> work) {
    end_ = {};
    error_ = nullptr;
    scope_.emplace(scheduler_);
    scope_->start(kept(std::move(work)));
    const bool isDone = co_await end_;
    scope_.reset();
    if (isDone && error_) std::rethrow_exception(error_);
    co_return isDone;
}

base::Task<void> InterruptibleWork::kept(base::Task<void> work) {
    try {
        co_await work;
    } catch (...) {
        error_ = std::current_exception();
    }
    endSoon(true);
}

void InterruptibleWork::stop() {
    if (scope_) endSoon(false);
}

void InterruptibleWork::endSoon(bool isDone) {
    scheduler_.post([answer = end_, isDone] { answer.succeed(isDone); });
}

}  // namespace tessivox::app
