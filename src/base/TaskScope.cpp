#include "base/TaskScope.h"

#include <cassert>
#include <cstdlib>
#include <string>

#include "base/Error.h"
#include "base/Log.h"
#include "base/Scheduler.h"

namespace tessivox::base {
namespace {

/// The outermost frame of a started task. It owns itself through the scope and stops at its end, to be erased later.
struct RootTask {
    struct promise_type {
        TaskRoot* root = nullptr;
        RootTask get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_always final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
    };
    std::coroutine_handle<promise_type> handle;
};

void reportEscaped(const std::exception_ptr& error) {
    log("Task ended with an error that nobody awaits: " + describe(error));
#ifndef NDEBUG
    std::abort();
#endif
}

}  // namespace

struct TaskScope::Running : TaskRoot {
    std::coroutine_handle<RootTask::promise_type> handle;
    Running() = default;
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
        assert(!running && "a task's scope was destroyed from inside the task");
        if (handle) handle.destroy();
    }
};

struct TaskScope::State : std::enable_shared_from_this<State> {
    explicit State(Scheduler& loop) : scheduler(loop) {}

    Scheduler& scheduler;
    std::list<Running> tasks;

    RootTask runRoot(Task<void> task, std::list<Running>::iterator self) {
        std::exception_ptr error;
        try {
            co_await task;
        } catch (...) {
            error = std::current_exception();
        }
        if (error) reportEscaped(error);
        self->running = false;
        // The frame is still on the stack here, so it goes in a later turn.
        scheduler.post([weak = weak_from_this(), self] {
            if (const auto state = weak.lock()) state->tasks.erase(self);
        });
    }
};

TaskScope::TaskScope(Scheduler& scheduler) : state_(std::make_shared<State>(scheduler)) {}

TaskScope::~TaskScope() { state_->tasks.clear(); }

void TaskScope::start(Task<void> task) {
    const auto self = state_->tasks.emplace(state_->tasks.end());
    self->handle = state_->runRoot(std::move(task), self).handle;
    self->handle.promise().root = &*self;
    state_->scheduler.post([weak = std::weak_ptr(state_), self] {
        if (const auto state = weak.lock()) {
            self->running = true;
            self->handle.resume();
        }
    });
}

bool TaskScope::isIdle() const noexcept { return state_->tasks.empty(); }

}  // namespace tessivox::base
