#include "audio/AudioDeviceManager.h"

#include <algorithm>

namespace tessivox::audio {

AudioDeviceManager::AudioDeviceManager(base::Scheduler& scheduler, AudioDevices& devices)
    : devices_(devices), change_(devices.onChange([this] { refresh(); })), tasks_(scheduler) {
    refresh();
}

void AudioDeviceManager::refresh() { tasks_.start(readDevices()); }

base::Task<void> AudioDeviceManager::readDevices() {
    const auto snapshot = co_await devices_.snapshot();
    inputDevices.set(snapshot.inputs);
    const auto found = std::ranges::find(snapshot.inputs, snapshot.defaultInputUID, &AudioDevice::uid);
    defaultInputDeviceID.set(found == snapshot.inputs.end() ? 0 : found->id);
}

}  // namespace tessivox::audio
