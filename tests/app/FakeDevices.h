#pragma once

#include <functional>

#include "audio/ports/AudioDevices.h"

namespace tessivox::app {

/// A sound server with two microphones and an output.
struct FakeDevices final : audio::AudioDevices {
    audio::AudioDeviceSnapshot now{true, {{1, "Built-in", "pci"}, {2, "USB Mic", "usb"}}, "pci", "speakers.monitor"};
    base::Signal<> changed;

    base::Task<audio::AudioDeviceSnapshot> snapshot() override { co_return now; }
    base::Subscription onChange(std::function<void()> handler) override { return changed.observe(std::move(handler)); }
};

}  // namespace tessivox::app
