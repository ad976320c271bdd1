#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/Signal.h"
#include "detection/ports/SessionWatch.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

class LoginManager;

/// Sleep and shutdown as logind tells them (org.freedesktop.login1, also of elogind), and the session's end, which is
/// also when the session bus goes away. Without logind nothing is delayed. Main thread.
class LogindSession final : public detection::SessionWatch {
public:
    explicit LogindSession(BusThread& bus);
    LogindSession(const LogindSession&) = delete;
    LogindSession& operator=(const LogindSession&) = delete;
    ~LogindSession() override;

    /// The delay may outlive this object, but not the bus thread.
    std::unique_ptr<Delay> delaySleepAndShutdown(const std::string& reason) override;
    base::Subscription onSleep(std::function<void(bool isGoingToSleep)> handler) override;
    base::Subscription onSessionEnd(std::function<void()> handler) override;

private:
    struct News {
        base::Signal<bool> sleep;
        base::Signal<> sessionEnd;
    };
    class HeldDelay;

    std::shared_ptr<News> news_ = std::make_shared<News>();
    std::shared_ptr<InBusThread<LoginManager>> manager_;
};

}  // namespace tessivox::gio
