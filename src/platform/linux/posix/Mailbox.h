#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "base/Scheduler.h"

namespace tessivox::posix {

/// What waits to run on one thread, its owner: posted work, and sources that were signalled. How the owner sleeps and
/// is woken is up to the derived class.
class Mailbox : public std::enable_shared_from_this<Mailbox> {
public:
    virtual ~Mailbox() = default;

    /// Appends work; drops it after close(). Any thread.
    void post(std::function<void()> work);
    /// The source keeps the mailbox alive. Any thread; destroying the source elsewhere than on the owner's thread waits
    /// for a drain that is running.
    [[nodiscard]] std::unique_ptr<base::WakeSource> makeSource(std::function<void()> drain);
    /// Makes the owner take a turn. Neither allocates nor locks. Any thread.
    void wake() noexcept {
        if (awake_.exchange(1) == 0) notify();
    }

    /// Runs the work that was posted before the turn, each piece after the sources signalled by then, so that what a
    /// source announced before work was posted is drained before that work. False if there was nothing. Owner's thread.
    bool runTurn();
    /// Drops what waits and all that comes. Owner's thread.
    void close();

protected:
    /// Ends the owner's sleep. Called once between two turns.
    virtual void notify() noexcept = 0;
    /// 1 from the first wake until the owner's next turn.
    std::atomic<int> awake_ = 0;

private:
    struct Source;
    class Handle;
    using Sources = std::vector<std::shared_ptr<Source>>;

    std::mutex mutex_;
    std::deque<std::function<void()>> incoming_;
    std::shared_ptr<const Sources> sources_ = std::make_shared<Sources>();  // replaced, never changed
    bool closed_ = false;
    std::atomic<bool> signalled_ = false;
    std::deque<std::function<void()>> batch_;  // owner's thread

    bool drainSources();
    void takeBatch();
    void removeSource(const std::shared_ptr<Source>& source);
};

}  // namespace tessivox::posix
