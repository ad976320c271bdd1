#include "audio/SystemAudioCapture.h"

#include <cstdlib>

#include "base/Text.h"

namespace tessivox::audio {
namespace {

std::string_view text(SystemAudioCaptureError::Case which) {
    switch (which) {
        case SystemAudioCaptureError::Case::permissionDenied:
            return "Screen Recording permission denied";
        case SystemAudioCaptureError::Case::noDisplayFound:
            return "No display found for audio capture";
        case SystemAudioCaptureError::Case::streamCreationFailed:
            return "Failed to create capture stream";
        case SystemAudioCaptureError::Case::captureStartFailed:
            return "Failed to start audio capture";
    }
    std::abort();
}

}  // namespace

SystemAudioCaptureError::SystemAudioCaptureError(Case which)
    : Error("SystemAudioCapture", static_cast<int>(which), base::localized(text(which))) {}

SystemAudioCapture::SystemAudioCapture(base::Scheduler& scheduler, AudioDevices& devices, CaptureBackend& backend,
                                       SystemAudioCaptureDelegate& delegate)
    : devices_(devices),
      source_(scheduler, devices,
              {
                  .pick = [](const AudioDeviceSnapshot& snapshot) { return snapshot.systemAudioSourceName; },
                  .open = [&backend](std::string name,
                                     CaptureSink& sink) { return backend.openSystemAudio(std::move(name), sink); },
                  .deliver = [&delegate](const AudioBuffer& buffer,
                                         base::HostTime time) { delegate.systemAudioDidCapture(buffer, time); },
                  .measured = [&delegate](float level) { delegate.systemAudioDidMeasure(level); },
                  .failed = [&delegate](const base::Error& error) { delegate.systemAudioDidFail(error); },
              }) {}

base::Task<void> SystemAudioCapture::start() {
    if (isCapturing()) co_return;
    const auto snapshot = co_await devices_.snapshot();
    if (!snapshot.serverReachable) throw noSoundServer();
    if (snapshot.systemAudioSourceName.empty()) {
        throw SystemAudioCaptureError(SystemAudioCaptureError::Case::noDisplayFound);
    }
    co_await source_.start(snapshot.systemAudioSourceName);
}

}  // namespace tessivox::audio
