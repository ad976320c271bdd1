#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/Signal.h"

namespace tessivox::detection {

/// The computer's sleep and the session's end. Main thread; never blocks, never throws.
class SessionWatch {
public:
    virtual ~SessionWatch() = default;

    /// While it lives, sleep and shutdown wait for us, as long as the system allows. An object that delays nothing
    /// where nobody can be asked.
    class Delay {
    public:
        virtual ~Delay() = default;
    };
    /// `reason` is a localized text that the system may show.
    [[nodiscard]] virtual std::unique_ptr<Delay> delaySleepAndShutdown(const std::string& reason) = 0;

    /// The computer goes to sleep as soon as nobody delays it (true), or has woken (false).
    [[nodiscard]] virtual base::Subscription onSleep(std::function<void(bool isGoingToSleep)> handler) = 0;
    /// The computer is shut down, or the session has ended: save, and let go.
    [[nodiscard]] virtual base::Subscription onSessionEnd(std::function<void()> handler) = 0;
};

}  // namespace tessivox::detection
