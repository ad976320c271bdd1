#include "detection/SessionGuard.h"

#include <utility>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::detection {

SessionGuard::SessionGuard(Parts parts) : parts_(std::move(parts)), tasks_(parts_.scheduler) {
    work_ = parts_.controller.isAtWork.observe([this](bool isAtWork) { workChanged(isAtWork); });
    sleep_ = parts_.watch.onSleep([this](bool isGoingToSleep) { sleepChanged(isGoingToSleep); });
    end_ = parts_.watch.onSessionEnd([this] { sessionEnded(); });
}

void SessionGuard::delay() {
    delay_ = parts_.watch.delaySleepAndShutdown(base::localized("A recording is brought to the disk"));
}

void SessionGuard::workChanged(bool isAtWork) {
    if (isAtWork) {
        delay();
    } else if (isEnding_) {
        end();
    } else {
        delay_.reset();
    }
}

void SessionGuard::sleepChanged(bool isGoingToSleep) {
    isAsleep_ = isGoingToSleep;
    if (!parts_.controller.isAtWork.get()) return;
    if (isGoingToSleep) {
        tasks_.start(flushBeforeSleep());
    } else {
        delay();
    }
}

base::Task<void> SessionGuard::flushBeforeSleep() {
    base::log("The computer goes to sleep: bringing the recording to the disk");
    auto flushing = parts_.recorder.flush();
    co_await flushing;
    // It may have woken meanwhile, or the session may have come to its end.
    if (isAsleep_ && !isEnding_) delay_.reset();
}

void SessionGuard::sessionEnded() {
    if (std::exchange(isEnding_, true)) return;
    base::log("The session ends");
    parts_.controller.endForGood();
    if (!parts_.controller.isAtWork.get()) end();
}

/// The delay is kept: it ends with the program, so that nothing is cut off.
void SessionGuard::end() { parts_.scheduler.post(parts_.endProgram); }

}  // namespace tessivox::detection
