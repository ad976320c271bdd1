#pragma once

#include <QSocketNotifier>
#include <QTimer>
#include <functional>
#include <optional>

#include "base/Units.h"

namespace tessivox::qt {

/// A main loop that can run inside Qt's.
struct GuestLoop {
    int fd;                                                       ///< readable when a turn is due
    std::function<std::optional<base::HostTime>()> nextDeadline;  ///< when one is due anyway
    std::function<base::HostTime()> now;
    std::function<void()> takeTurn;  ///< without waiting
};

/// Lets a guest take its turns inside QCoreApplication::exec(), so that its timers, descriptors and posted work run
/// beside Qt's events. Made after the application object; main thread. A turn must not run a nested event loop.
class QtLoop {
public:
    explicit QtLoop(GuestLoop guest);
    QtLoop(const QtLoop&) = delete;
    QtLoop& operator=(const QtLoop&) = delete;

private:
    GuestLoop guest_;
    QSocketNotifier notifier_;
    QTimer timer_;

    void setTimer();
};

}  // namespace tessivox::qt
