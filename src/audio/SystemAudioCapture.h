#pragma once

#include "audio/LiveSource.h"

namespace tessivox::audio {

class SystemAudioCaptureError : public base::Error {
public:
    enum class Case { permissionDenied, noDisplayFound, streamCreationFailed, captureStartFailed };
    explicit SystemAudioCaptureError(Case which);
};

/// Takes what the computer plays.
class SystemAudioCaptureDelegate {
public:
    virtual ~SystemAudioCaptureDelegate() = default;
    /// A buffer and the host time of its first frame. Capture thread.
    virtual void systemAudioDidCapture(const AudioBuffer& buffer, base::HostTime time) = 0;
    /// Level of a buffer, 0 to 1. Main thread.
    virtual void systemAudioDidMeasure(float level) = 0;
    /// An interruption; the capture goes on by itself as soon as it can. Main thread.
    virtual void systemAudioDidFail(const base::Error& error) = 0;
};

/// Captures what the computer plays, without this program's own sound, for one recording. It follows the default
/// output. Main thread.
class SystemAudioCapture {
public:
    /// Everything referred to outlives it.
    SystemAudioCapture(base::Scheduler& scheduler, AudioDevices& devices, CaptureBackend& backend,
                       SystemAudioCaptureDelegate& delegate);

    /// Throws SystemAudioCaptureError, or the sound server's own error.
    base::Task<void> start();
    void stop() { source_.stop(); }
    void setPaused(bool paused) { source_.setPaused(paused); }
    bool isCapturing() const { return source_.isCapturing(); }

private:
    AudioDevices& devices_;
    LiveSource source_;
};

}  // namespace tessivox::audio
