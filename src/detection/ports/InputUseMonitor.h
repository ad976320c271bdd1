#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/Signal.h"

namespace tessivox::detection {

/// Number of an audio input; 0 is none.
using DeviceID = std::uint32_t;

/// A process that takes sound from a microphone.
struct InputProcess {
    std::int32_t pid = 0;  ///< 0 if it is not known
    std::string bundleID;  ///< identifies the application; "unknown." and the pid if nothing better is known

    bool operator==(const InputProcess&) const = default;
};

/// Who takes sound from any microphone now, this program excepted. A sound server that is lost for a moment is no
/// answer: the last one holds. Main thread; never blocks, never throws.
class InputUseMonitor {
public:
    virtual ~InputUseMonitor() = default;

    /// Number of the default input, or a reserved one while there is none: absent or 0 only if nothing can be watched
    /// at all.
    virtual std::optional<DeviceID> defaultInputDevice() const = 0;
    /// Whether somebody takes sound from a microphone; absent if the device is not the one that is watched.
    virtual std::optional<bool> isRunningSomewhere(DeviceID device) const = 0;
    /// In the order in which the sound server lists them.
    virtual std::vector<InputProcess> inputProcesses() const = 0;

    /// Called when inputProcesses() differs from what it was at the last call. False from `isWatched` if the device
    /// cannot be watched: the subscription is then empty.
    struct Watch {
        bool isWatched = false;
        base::Subscription subscription;
    };
    [[nodiscard]] virtual Watch watch(DeviceID device, std::function<void()> handler) = 0;
    /// Called when defaultInputDevice() has changed.
    [[nodiscard]] virtual base::Subscription onDefaultInputChange(std::function<void()> handler) = 0;
};

}  // namespace tessivox::detection
