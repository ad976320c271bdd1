#pragma once

#include "base/Observable.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "core/AppState.h"

namespace tessivox::core {

/// The badge at the upper right of the status icon, by its colour.
enum class StatusBadge { none, red, orange, blue };

/// What the status icon looks like at one moment.
struct StatusImage {
    StatusBadge badge = StatusBadge::none;
    /// Whether the desktop colours the symbol; otherwise it is drawn to suit the panel's background, with the badge.
    bool isTemplate = true;

    bool operator==(const StatusImage&) const = default;
};

/// Decides what the status icon shows: whether a recording runs, rests, or an update waits. Main thread.
class StatusIcon {
public:
    /// Half of the blinking badge's cycle.
    static constexpr base::Duration kBlinkInterval = std::chrono::milliseconds(600);

    /// Plain until subscribe(). The three outlive it.
    StatusIcon(base::Scheduler& scheduler, AppState& state, base::Observable<bool>& updateAvailable)
        : scheduler_(scheduler), state_(state), updateAvailable_(updateAvailable) {}
    StatusIcon(const StatusIcon&) = delete;
    StatusIcon& operator=(const StatusIcon&) = delete;

    /// Shows the present state, and every change from now on.
    void subscribe();

    base::Observable<StatusImage> image;  ///< written here only

private:
    base::Scheduler& scheduler_;
    AppState& state_;
    base::Observable<bool>& updateAvailable_;
    base::Timer blinkTimer_;
    bool blinkOn_ = true;
    base::Subscription recording_;
    base::Subscription pause_;
    base::Subscription update_;

    void show();
    void startBlinking();
    void blink();
};

}  // namespace tessivox::core
