#pragma once

#include <memory>
#include <optional>
#include <string>

#include "backend/Options.h"
#include "backend/jobs/JobStore.h"
#include "backend/worker/WorkerProcess.h"
#include "base/Timer.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::backend {

/// Works the store's jobs off, one after the other, each attempt in a process of its own. Main thread.
class JobRunner {
public:
    JobRunner(posix::EventLoop& loop, JobStore& store, const EngineOptions& engine, const Limits& limits);
    JobRunner(const JobRunner&) = delete;
    JobRunner& operator=(const JobRunner&) = delete;
    /// The job under way goes back to the queue, as if it had not been begun.
    ~JobRunner();

    /// There may be a job.
    void wake();

private:
    posix::EventLoop& loop_;
    JobStore& store_;
    const EngineOptions engine_;
    const Limits limits_;
    std::optional<Job> job_;
    std::optional<JobResult> result_;
    std::optional<std::string> failure_;
    std::string crashSentence_;
    int crashes_ = 0;  ///< in a row
    std::unique_ptr<WorkerProcess> worker_;
    base::Timer deadline_;
    base::Timer pause_;

    void begin();
    void start();
    void take(const std::string& line);
    void allow(base::Duration time);
    void end();
    void pause(base::Duration time);
};

}  // namespace tessivox::backend
