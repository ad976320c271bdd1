#pragma once

#include <list>
#include <memory>

#include "base/Task.h"

namespace tessivox::base {

class Scheduler;

/// Owns tasks that an object started of its own accord; keep it as the object's last member, so that they go first.
/// Main thread. It must not be destroyed from inside one of its own tasks: post such a goodbye to the scheduler.
class TaskScope {
public:
    explicit TaskScope(Scheduler& scheduler);
    TaskScope(const TaskScope&) = delete;
    TaskScope& operator=(const TaskScope&) = delete;
    ~TaskScope();

    /// Begins the task in a later turn of the loop. An exception that leaves it is logged, and aborts debug builds:
    /// nobody is there to catch it.
    void start(Task<void> task);

    bool isIdle() const noexcept;

private:
    struct Running;
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace tessivox::base
