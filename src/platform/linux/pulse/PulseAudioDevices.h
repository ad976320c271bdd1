#pragma once

#include "audio/ports/AudioDevices.h"
#include "platform/linux/pulse/SoundServerLink.h"

namespace tessivox::pulse {

/// The devices of a PulseAudio or PipeWire server. Main thread; the link outlives it.
class PulseAudioDevices final : public audio::AudioDevices {
public:
    explicit PulseAudioDevices(SoundServerLink& link) : link_(link) {}

    base::Task<audio::AudioDeviceSnapshot> snapshot() override;
    base::Subscription onChange(std::function<void()> handler) override { return link_.onChange(std::move(handler)); }

private:
    SoundServerLink& link_;
};

}  // namespace tessivox::pulse
