#pragma once

#include <memory>

#include "CallMeter.h"
#include "SpeechTape.h"
#include "audio/ports/AudioDevices.h"
#include "audio/ports/CaptureBackend.h"
#include "base/Scheduler.h"

namespace tessivox::bench {

/// A sound server with one microphone and one output that play the tape in real time, each on a thread of its own and
/// timed as the adapter for real servers does it.
class PacedSound final : public audio::AudioDevices, public audio::CaptureBackend {
public:
    /// The calls of a capture thread are measured, if at all, after the first `warmUp` ones.
    PacedSound(base::Scheduler& scheduler, const SpeechTape& tape, bool measuresCalls, std::uint64_t warmUp)
        : scheduler_(scheduler),
          tape_(tape),
          measuresCalls_(measuresCalls),
          microphoneCalls_(warmUp),
          systemCalls_(warmUp) {}

    /// What the deliveries of each source cost. Once its stream is closed.
    const CallMeter& microphoneCalls() const { return microphoneCalls_; }
    const CallMeter& systemCalls() const { return systemCalls_; }

    base::Task<audio::AudioDeviceSnapshot> snapshot() override;
    base::Subscription onChange(std::function<void()>) override { return {}; }
    base::Task<std::unique_ptr<audio::CaptureStream>> openMicrophone(std::string uid,
                                                                     audio::CaptureSink& sink) override;
    base::Task<std::unique_ptr<audio::CaptureStream>> openSystemAudio(std::string sourceName,
                                                                      audio::CaptureSink& sink) override;

private:
    class Stream;
    base::Scheduler& scheduler_;
    const SpeechTape& tape_;
    bool measuresCalls_;
    CallMeter microphoneCalls_;
    CallMeter systemCalls_;
};

}  // namespace tessivox::bench
