#include "platform/linux/pulse/PulseAudioDevices.h"

#include <algorithm>

#include "base/Error.h"
#include "base/Log.h"

namespace tessivox::pulse {
namespace {

audio::AudioDeviceSnapshot makeSnapshot(const std::vector<Source>& sources, const Defaults& defaults) {
    audio::AudioDeviceSnapshot snapshot;
    snapshot.serverReachable = true;
    for (const auto& source : sources) {
        if (source.isMonitor) {
            if (source.monitoredSink == defaults.sink) snapshot.systemAudioSourceName = source.name;
            continue;
        }
        snapshot.inputs.push_back({source.index, source.description, source.name});
        // Without a microphone servers name a monitor or a placeholder, neither of which is among the inputs.
        if (source.name == defaults.source) snapshot.defaultInputUID = source.name;
    }
    return snapshot;
}

}  // namespace

base::Task<audio::AudioDeviceSnapshot> PulseAudioDevices::snapshot() {
    audio::AudioDeviceSnapshot snapshot;
    try {
        const auto connection = co_await link_.connection();
        const auto defaults = co_await connection->defaults();
        const auto sources = co_await connection->sources();
        snapshot = makeSnapshot(sources, defaults);
    } catch (const base::Error& error) {
        base::log("No devices: " + error.description());
    }
    co_return snapshot;
}

}  // namespace tessivox::pulse
