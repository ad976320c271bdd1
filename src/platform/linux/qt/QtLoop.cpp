#include "platform/linux/qt/QtLoop.h"

#include <QAbstractEventDispatcher>
#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

namespace tessivox::qt {

QtLoop::QtLoop(GuestLoop guest) : guest_(std::move(guest)), notifier_(guest_.fd, QSocketNotifier::Read) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] { guest_.takeTurn(); });
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { guest_.takeTurn(); });
    // Whatever ran may have made or cancelled a timer of the guest's, also outside its turns.
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &timer_,
                     [this] { setTimer(); });
}

void QtLoop::setTimer() {
    using std::chrono::milliseconds;
    const auto deadline = guest_.nextDeadline();
    if (!deadline) return timer_.stop();
    // Rounded up, so that the timer is due when the turn comes.
    const auto span = std::chrono::ceil<milliseconds>(*deadline - guest_.now());
    timer_.start(std::clamp(span, milliseconds(0), milliseconds(std::numeric_limits<int>::max())));
}

}  // namespace tessivox::qt
