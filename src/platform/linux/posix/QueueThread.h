#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/TaskQueue.h"

namespace tessivox::posix {

/// A serial queue on a thread of its own, named after the last dotted part of its label.
class QueueThread final : public base::TaskQueue {
public:
    /// Throws std::system_error when the system has no threads left. A priority that the system refuses is done
    /// without.
    QueueThread(base::Scheduler& home, std::string label, base::QueuePriority priority);
    /// Runs what was posted and signalled, also by that work, then joins. Not on the queue's own thread.
    ~QueueThread() override;

    void post(std::function<void()> work) override;
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override;
    base::Scheduler& home() override { return home_; }

private:
    class Inbox;
    base::Scheduler& home_;
    std::shared_ptr<Inbox> inbox_;
    std::atomic<bool> ending_ = false;
    std::thread thread_;

    void serve(const std::string& label, base::QueuePriority priority);
};

}  // namespace tessivox::posix
