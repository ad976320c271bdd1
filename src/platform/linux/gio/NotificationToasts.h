#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "base/Observable.h"
#include "detection/ports/ToastPresenter.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

/// Shows toasts as notifications (Desktop Notifications Specification 1.2) where a server runs that offers actions. The
/// server's own time-out and a click that only closes the notification are no answers: the toast stands until it is
/// destroyed. Main thread.
class NotificationToasts final : public detection::ToastPresenter {
public:
    struct Timing {
        /// A server that the bus can start is started only if none has come by itself within this time, so that a
        /// desktop that is still starting has its own.
        base::Duration grace = std::chrono::seconds(10);
        /// How long a server may take to show a notification.
        base::Duration patience = std::chrono::seconds(3);
    };
    /// `otherwise` shows what no server can show, also when that turns out later, until one can.
    NotificationToasts(BusThread& bus, detection::ToastPresenter& otherwise, Timing timing);
    NotificationToasts(BusThread& bus, detection::ToastPresenter& otherwise);
    NotificationToasts(const NotificationToasts&) = delete;
    NotificationToasts& operator=(const NotificationToasts&) = delete;
    ~NotificationToasts() override;

    /// The toast may outlive this object, but neither the bus thread nor `otherwise`.
    std::unique_ptr<detection::Toast> show(detection::ToastContents contents) override;

    /// Whether there is such a server.
    bool isAvailable() const;
    /// Called at once, then on each change.
    base::Subscription onAvailability(std::function<void(bool isAvailable)> handler);

private:
    class Desk;
    class NotificationToast;

    std::shared_ptr<Desk> desk_;
};

}  // namespace tessivox::gio
