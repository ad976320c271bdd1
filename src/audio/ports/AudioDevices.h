#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/Signal.h"
#include "base/Task.h"

namespace tessivox::audio {

/// An input device.
struct AudioDevice {
    std::uint32_t id = 0;  ///< the sound server's index; another one after each plugging in
    std::string name;      ///< display name, UTF-8
    std::string uid;       ///< persistent name; what the settings store

    bool operator==(const AudioDevice&) const = default;
};

/// What the sound server has at one moment.
struct AudioDeviceSnapshot {
    bool serverReachable = false;
    std::vector<AudioDevice> inputs;    ///< real inputs; never a monitor of an output
    std::string defaultInputUID;        ///< uid among `inputs`; empty while there is no default microphone
    std::string systemAudioSourceName;  ///< the monitor of the default output; empty if there is none

    bool operator==(const AudioDeviceSnapshot&) const = default;
};

/// The sound server's devices. Main thread.
class AudioDevices {
public:
    virtual ~AudioDevices() = default;
    /// Reads anew. Never throws: a server that cannot be reached gives an empty snapshot with serverReachable false.
    /// While the first connection is still being made it waits for its outcome.
    virtual base::Task<AudioDeviceSnapshot> snapshot() = 0;
    /// Called after devices came or went, a default changed, or the server went away or came back; floods are
    /// coalesced.
    virtual base::Subscription onChange(std::function<void()> handler) = 0;
};

}  // namespace tessivox::audio
