#include "platform/linux/gio/LogindSession.h"

#include <utility>

#include "base/Text.h"
#include "platform/linux/gio/LoginManager.h"

namespace tessivox::gio {

/// Its address names it to the other thread.
class LogindSession::HeldDelay final : public Delay {
public:
    HeldDelay(std::shared_ptr<InBusThread<LoginManager>> manager, std::string reason) : manager_(std::move(manager)) {
        manager_->run([key = this, reason = std::move(reason)](LoginManager& logind) { logind.delay(key, reason); });
    }
    HeldDelay(const HeldDelay&) = delete;
    HeldDelay& operator=(const HeldDelay&) = delete;
    ~HeldDelay() override {
        manager_->run([key = this](LoginManager& logind) { logind.letGo(key); });
    }

private:
    std::shared_ptr<InBusThread<LoginManager>> manager_;
};

LogindSession::LogindSession(BusThread& bus) {
    const WayHome<News> home(bus.scheduler(), news_);
    const LoginManager::Listeners listeners{
        [home](bool isGoingToSleep) { home([isGoingToSleep](const News& news) { news.sleep.emit(isGoingToSleep); }); },
        [home] { home([](const News& news) { news.sessionEnd.emit(); }); }};
    manager_ = std::make_shared<InBusThread<LoginManager>>(bus, std::make_shared<LoginManager>(bus, listeners));
}

LogindSession::~LogindSession() = default;

std::unique_ptr<detection::SessionWatch::Delay> LogindSession::delaySleepAndShutdown(const std::string& reason) {
    return std::make_unique<HeldDelay>(manager_, base::repairedUTF8(reason));
}

base::Subscription LogindSession::onSleep(std::function<void(bool isGoingToSleep)> handler) {
    return news_->sleep.observe(std::move(handler));
}

base::Subscription LogindSession::onSessionEnd(std::function<void()> handler) {
    return news_->sessionEnd.observe(std::move(handler));
}

}  // namespace tessivox::gio
