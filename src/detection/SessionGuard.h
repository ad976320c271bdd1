#pragma once

#include <functional>
#include <memory>

#include "audio/AudioRecorder.h"
#include "base/Signal.h"
#include "base/TaskScope.h"
#include "detection/RecordingController.h"
#include "detection/ports/SessionWatch.h"

namespace tessivox::detection {

/// Keeps a recording safe when the computer goes to sleep or the session ends: both wait, as long as the system lets
/// them, until what is recorded is on the disk. Main thread.
///
/// A recording goes on after sleep, and joins what came before it: the clock that places sound stands still meanwhile.
class SessionGuard {
public:
    struct Parts {
        base::Scheduler& scheduler;
        SessionWatch& watch;
        RecordingController& controller;
        audio::AudioRecorder& recorder;
        std::function<void()> endProgram;  ///< not from within the call
    };
    explicit SessionGuard(Parts parts);
    SessionGuard(const SessionGuard&) = delete;
    SessionGuard& operator=(const SessionGuard&) = delete;

    /// The session has ended, and the program ends as soon as all is saved.
    bool isEnding() const { return isEnding_; }

private:
    Parts parts_;
    bool isAsleep_ = false;  ///< from when the computer says that it goes to sleep until it says that it has woken
    bool isEnding_ = false;
    std::unique_ptr<SessionWatch::Delay> delay_;
    base::Subscription work_;
    base::Subscription sleep_;
    base::Subscription end_;
    base::TaskScope tasks_;

    void workChanged(bool isAtWork);
    void sleepChanged(bool isGoingToSleep);
    base::Task<void> flushBeforeSleep();
    void sessionEnded();
    void end();
    void delay();
};

}  // namespace tessivox::detection
