#pragma once

#include "base/Task.h"
#include "core/AppState.h"
#include "core/ports/Alerts.h"

namespace tessivox::core {

/// Asks before the program ends in the middle of a recording. Main thread.
class QuitGuard {
public:
    QuitGuard(AppState& state, Alerts& alerts) : state_(state), alerts_(alerts) {}

    /// Whether the program may end. Ending stops nothing: the next start restores what was recorded.
    base::Task<bool> shouldTerminate();

private:
    AppState& state_;
    Alerts& alerts_;
};

}  // namespace tessivox::core
