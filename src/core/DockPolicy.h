#pragma once

#include "base/Signal.h"
#include "base/ports/Preferences.h"
#include "core/AppSettings.h"
#include "core/ports/Dock.h"

namespace tessivox::core {

/// Keeps the program's place in the dock as the setting showInDock says. Main thread.
class DockPolicy {
public:
    DockPolicy(base::Preferences& store, AppSettings& settings, Dock& dock)
        : store_(store), settings_(settings), dock_(dock) {}

    /// Makes the dock agree with the setting.
    void apply();
    /// Applies it again after every change of the preferences, whichever it was: the dock may have been changed by
    /// others meanwhile.
    void follow();

private:
    base::Preferences& store_;
    AppSettings& settings_;
    Dock& dock_;
    base::Subscription changes_;
};

}  // namespace tessivox::core
