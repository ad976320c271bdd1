#include "platform/linux/gio/NotificationToasts.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "base/Text.h"
#include "platform/linux/gio/NotificationServer.h"

namespace tessivox::gio {
namespace {

using namespace std::chrono_literals;
using detection::Toast;
using detection::ToastContents;

constexpr base::Duration kBetweenUpdates = 1s;
/// The toast's owner closes it when its time is over. Only if that owner was killed does the server have to.
constexpr auto kAfterCountdown = 5s;

/// A name of the Icon Naming Specification 0.8 for one of the toast's tile.
std::string iconFor(const std::string& systemImage) {
    if (systemImage == "phone.fill") return "call-start";
    if (systemImage == "phone.down.fill") return "call-stop";
    return "audio-input-microphone";
}

NotificationText textOf(const ToastContents& contents) {
    NotificationText text{iconFor(contents.systemImage),
                          base::repairedUTF8(contents.title),
                          base::repairedUTF8(contents.subtitle),
                          {},
                          std::chrono::ceil<std::chrono::milliseconds>(contents.countdown) + kAfterCountdown};
    for (const auto& button : contents.buttons) text.actions.push_back(base::repairedUTF8(button.title));
    return text;
}

}  // namespace

/// What the toasts and their presenter share.
class NotificationToasts::Desk : public std::enable_shared_from_this<Desk> {
public:
    Desk(base::Scheduler& loop, detection::ToastPresenter& second, const Timing& times)
        : scheduler(loop), otherwise(second), timing(times) {}

    base::Scheduler& scheduler;
    detection::ToastPresenter& otherwise;
    const Timing timing;
    base::Observable<bool> isAvailable{false};
    std::map<std::uint64_t, NotificationToast*> toasts;
    std::uint64_t lastKey = 0;
    std::optional<InBusThread<NotificationServer>> server;

    void connect(BusThread& bus);
    NotificationToast* toast(std::uint64_t key) const {
        const auto found = toasts.find(key);
        return found == toasts.end() ? nullptr : found->second;
    }
};

class NotificationToasts::NotificationToast final : public Toast {
public:
    NotificationToast(std::shared_ptr<Desk> desk, ToastContents contents)
        : desk_(std::move(desk)), contents_(std::move(contents)), key_(++desk_->lastKey) {
        desk_->toasts.emplace(key_, this);
        desk_->server->run(
            [key = key_, text = textOf(contents_)](NotificationServer& server) { server.show(key, text); });
        lastUpdate_ = desk_->scheduler.now();
        doubt_ = desk_->scheduler.after(desk_->timing.patience, [this] { setShown(false); });
    }
    NotificationToast(const NotificationToast&) = delete;
    NotificationToast& operator=(const NotificationToast&) = delete;
    ~NotificationToast() override {
        desk_->toasts.erase(key_);
        desk_->server->run([key = key_](NotificationServer& server) { server.close(key); });
    }

    bool isVisible() const override { return !otherwise_ || otherwise_->isVisible(); }

    void setSubtitle(const std::string& subtitle) override {
        if (otherwise_) otherwise_->setSubtitle(subtitle);
        if (std::exchange(contents_.subtitle, subtitle) == subtitle || update_) return;
        const auto wait = lastUpdate_ + kBetweenUpdates - desk_->scheduler.now();
        update_ = desk_->scheduler.after(std::max(wait, base::Duration::zero()), [this] { update(); });
    }

    /// Only the first answer counts. It may destroy this toast.
    void answer(std::size_t action) {
        if (std::exchange(isAnswered_, true)) return;
        const auto act = contents_.buttons.at(action).action;
        if (act) act();
    }

    void setShown(bool isShown) {
        doubt_.reset();
        if (isShown)
            otherwise_.reset();
        else if (!otherwise_ && !isAnswered_)
            otherwise_ = desk_->otherwise.show(contents_);
    }

private:
    const std::shared_ptr<Desk> desk_;
    ToastContents contents_;
    const std::uint64_t key_;
    bool isAnswered_ = false;
    base::HostTime lastUpdate_;
    std::unique_ptr<Toast> otherwise_;
    base::Timer update_;
    base::Timer doubt_;

    void update() {
        lastUpdate_ = desk_->scheduler.now();
        desk_->server->run([key = key_, body = base::repairedUTF8(contents_.subtitle)](NotificationServer& server) {
            server.setBody(key, body);
        });
    }
};

void NotificationToasts::Desk::connect(BusThread& bus) {
    const WayHome<Desk> home(scheduler, weak_from_this());
    const NotificationServer::Listeners listeners{
        [home](bool isThere) { home([isThere](Desk& desk) { desk.isAvailable.set(isThere); }); },
        [home](std::uint64_t key, std::size_t action) {
            home([key, action](const Desk& desk) {
                if (auto* toast = desk.toast(key)) toast->answer(action);
            });
        },
        [home](std::uint64_t key, bool isShown) {
            home([key, isShown](const Desk& desk) {
                if (auto* toast = desk.toast(key)) toast->setShown(isShown);
            });
        }};
    server.emplace(bus, std::make_shared<NotificationServer>(bus, listeners, timing.grace));
}

NotificationToasts::NotificationToasts(BusThread& bus, detection::ToastPresenter& otherwise, Timing timing)
    : desk_(std::make_shared<Desk>(bus.scheduler(), otherwise, timing)) {
    desk_->connect(bus);
}

NotificationToasts::NotificationToasts(BusThread& bus, detection::ToastPresenter& otherwise)
    : NotificationToasts(bus, otherwise, Timing{}) {}

NotificationToasts::~NotificationToasts() = default;

std::unique_ptr<Toast> NotificationToasts::show(ToastContents contents) {
    if (!isAvailable()) return desk_->otherwise.show(std::move(contents));
    return std::make_unique<NotificationToast>(desk_, std::move(contents));
}

bool NotificationToasts::isAvailable() const { return desk_->isAvailable.get(); }

base::Subscription NotificationToasts::onAvailability(std::function<void(bool isAvailable)> handler) {
    return desk_->isAvailable.observe(std::move(handler));
}

}  // namespace tessivox::gio
