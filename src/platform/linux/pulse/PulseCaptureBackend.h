#pragma once

#include <memory>
#include <string>

#include "audio/ports/CaptureBackend.h"
#include "base/Scheduler.h"

namespace tessivox::pulse {

struct Source;
class Connection;

/// Captures from a PulseAudio or PipeWire server; each stream has a connection and a thread of its own. Errors have the
/// domain "pulse" (PulseError.h). Main thread; the scheduler outlives the backend.
class PulseCaptureBackend final : public audio::CaptureBackend {
public:
    /// An empty address means the user's server.
    explicit PulseCaptureBackend(base::Scheduler& scheduler, std::string address = {})
        : scheduler_(scheduler), address_(std::move(address)) {}

    base::Task<std::unique_ptr<audio::CaptureStream>> openMicrophone(std::string uid,
                                                                     audio::CaptureSink& sink) override;
    base::Task<std::unique_ptr<audio::CaptureStream>> openSystemAudio(std::string sourceName,
                                                                      audio::CaptureSink& sink) override;

private:
    base::Scheduler& scheduler_;
    std::string address_;

    base::Task<std::shared_ptr<Connection>> connect();
};

}  // namespace tessivox::pulse
