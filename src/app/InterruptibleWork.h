#pragma once

#include <exception>
#include <optional>

#include "base/Completion.h"
#include "base/Scheduler.h"
#include "base/Task.h"
#include "base/TaskScope.h"

namespace tessivox::app {

/// Work that can be ended before it is done. One at a time; main thread.
class InterruptibleWork {
public:
    explicit InterruptibleWork(base::Scheduler& scheduler) : scheduler_(scheduler) {}

    /// Carries it out; false if stop() ended it. Throws what the work throws.
    base::Task<bool> carriedOut(base::Task<void> work);
    /// Destroys the work in a later turn, so that it may ask for that itself. Does nothing where there is none.
    void stop();

private:
    base::Scheduler& scheduler_;
    base::Completion<bool> end_;
    std::exception_ptr error_;
    std::optional<base::TaskScope> scope_;

    base::Task<void> kept(base::Task<void> work);
    void endSoon(bool isDone);
};

}  // namespace tessivox::app
