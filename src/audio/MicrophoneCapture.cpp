#include "audio/MicrophoneCapture.h"

#include <algorithm>
#include <cstdlib>

#include "base/Text.h"

namespace tessivox::audio {
namespace {

std::string_view text(MicrophoneCaptureError::Case which) {
    switch (which) {
        case MicrophoneCaptureError::Case::permissionDenied:
            return "Microphone permission denied";
        case MicrophoneCaptureError::Case::deviceNotFound:
            return "Audio input device not found";
        case MicrophoneCaptureError::Case::failedToSetDevice:
            return "Failed to set audio input device";
        case MicrophoneCaptureError::Case::invalidAudioFormat:
            return "Invalid audio format";
        case MicrophoneCaptureError::Case::engineStartFailed:
            return "Failed to start audio engine";
    }
    std::abort();
}

bool has(const AudioDeviceSnapshot& snapshot, const std::string& uid) {
    return std::ranges::find(snapshot.inputs, uid, &AudioDevice::uid) != snapshot.inputs.end();
}

}  // namespace

MicrophoneCaptureError::MicrophoneCaptureError(Case which)
    : Error("MicrophoneCapture", static_cast<int>(which), base::localized(text(which))) {}

MicrophoneCapture::MicrophoneCapture(base::Scheduler& scheduler, AudioDevices& devices, CaptureBackend& backend,
                                     MicrophoneCaptureDelegate& delegate)
    : devices_(devices),
      source_(scheduler, devices,
              {
                  .pick = [this](const AudioDeviceSnapshot& snapshot) { return pick(snapshot); },
                  .open = [&backend](std::string uid,
                                     CaptureSink& sink) { return backend.openMicrophone(std::move(uid), sink); },
                  .deliver = [&delegate](const AudioBuffer& buffer,
                                         base::HostTime time) { delegate.microphoneDidCapture(buffer, time); },
                  .measured = [&delegate](float level) { delegate.microphoneDidMeasure(level); },
                  .failed = [&delegate](const base::Error& error) { delegate.microphoneDidFail(error); },
              }) {}

base::Task<void> MicrophoneCapture::start(std::optional<std::string> deviceUID) {
    if (isCapturing()) co_return;
    currentDeviceUID_ = std::move(deviceUID);
    const auto snapshot = co_await devices_.snapshot();
    if (!snapshot.serverReachable) throw noSoundServer();
    const auto device = currentDeviceUID_.value_or(snapshot.defaultInputUID);
    if (!has(snapshot, device)) throw MicrophoneCaptureError(MicrophoneCaptureError::Case::deviceNotFound);
    co_await source_.start(device);
}

std::string MicrophoneCapture::pick(const AudioDeviceSnapshot& snapshot) const {
    if (currentDeviceUID_ && has(snapshot, *currentDeviceUID_)) return *currentDeviceUID_;
    return snapshot.defaultInputUID;
}

}  // namespace tessivox::audio
