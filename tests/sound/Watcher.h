#pragma once

#include <optional>
#include <string>

#include "detection/CallDetector.h"
#include "platform/linux/desktop/DesktopApplications.h"
#include "platform/linux/pulse/PulseInputUse.h"
#include "support/MemoryPreferences.h"
#include "support/SentSignals.h"

namespace tessivox::testing {

/// All that notices calls, put together as the program does.
struct Watcher {
    pulse::SoundServerLink link;
    desktop::DesktopEntries entries;
    desktop::ProcessIdentities identities{entries};
    desktop::DesktopApplications applications{entries, identities};
    pulse::PulseInputUse use;
    MemoryPreferences preferences;
    SentSignals signals;
    detection::CallDetector detector;

    Watcher(base::Scheduler& scheduler, const std::string& address)
        : link(scheduler, address),
          use(link, [this](const pulse::Declaration& owner) { return identify(owner); }),
          detector({scheduler, use, applications, preferences, signals.analytics, "tessivox"}) {}

private:
    std::optional<detection::InputProcess> identify(const pulse::Declaration& owner) {
        desktop::ProcessClues clues;
        clues.pid = owner.pid;
        clues.securityPID = owner.securityPID;
        clues.binary = owner.binary;
        clues.applicationID = owner.applicationID;
        clues.portalID = owner.portalID;
        const auto identity = identities.identify(clues);
        if (!identity) return std::nullopt;
        return detection::InputProcess{identity->pid, identity->identifier};
    }
};

}  // namespace tessivox::testing
