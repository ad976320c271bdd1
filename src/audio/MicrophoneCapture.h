#pragma once

#include <optional>
#include <string>

#include "audio/LiveSource.h"

namespace tessivox::audio {

class MicrophoneCaptureError : public base::Error {
public:
    enum class Case { permissionDenied, deviceNotFound, failedToSetDevice, invalidAudioFormat, engineStartFailed };
    explicit MicrophoneCaptureError(Case which);
};

/// Takes what the microphone captures.
class MicrophoneCaptureDelegate {
public:
    virtual ~MicrophoneCaptureDelegate() = default;
    /// A buffer and the host time of its first frame. Capture thread.
    virtual void microphoneDidCapture(const AudioBuffer& buffer, base::HostTime time) = 0;
    /// Level of a buffer, 0 to 1. Main thread.
    virtual void microphoneDidMeasure(float level) = 0;
    /// An interruption; the capture goes on by itself as soon as it can. Main thread.
    virtual void microphoneDidFail(const base::Error& error) = 0;
};

/// Captures one input device for one recording. After a device change it uses the selected device if it is there, else
/// the default input; a selected device that comes back is used again. Main thread.
class MicrophoneCapture {
public:
    /// Everything referred to outlives it.
    MicrophoneCapture(base::Scheduler& scheduler, AudioDevices& devices, CaptureBackend& backend,
                      MicrophoneCaptureDelegate& delegate);

    /// Absent means the system's default input. Throws MicrophoneCaptureError, or the sound server's own error.
    base::Task<void> start(std::optional<std::string> deviceUID);
    void stop() { source_.stop(); }
    void setPaused(bool paused) { source_.setPaused(paused); }
    bool isCapturing() const { return source_.isCapturing(); }

private:
    AudioDevices& devices_;
    std::optional<std::string> currentDeviceUID_;
    LiveSource source_;

    std::string pick(const AudioDeviceSnapshot& snapshot) const;
};

}  // namespace tessivox::audio
