#pragma once

#include <memory>
#include <string>

#include "audio/AudioBuffer.h"
#include "base/Task.h"

namespace tessivox::audio {

/// Takes what a capture stream delivers.
class CaptureSink {
public:
    virtual ~CaptureSink() = default;
    /// Audio and the host time of its first frame, in order; never earlier than the end of the buffer before it by more
    /// than a correction of the stream's clock. Capture thread: no lock held across work, no file, no allocation in
    /// steady state.
    virtual void onAudio(const AudioBuffer& buffer, base::HostTime time) = 0;
    /// The stream has ended by itself: its device or the server is gone. The reason is a sentence for the user. At most
    /// once; the stream may be destroyed from within. Main thread.
    virtual void onEnded(const std::string& reason) = 0;
};

/// A running capture. Destroying it (main thread) closes it; when the destructor returns, the sink is not called any
/// more.
class CaptureStream {
public:
    virtual ~CaptureStream() = default;
};

/// Opens capture streams on the sound server. Main thread. The sink outlives the stream. A name is checked first: an
/// unknown one is an error, never another device. Errors are thrown as base::Error with a sentence for the user.
class CaptureBackend {
public:
    virtual ~CaptureBackend() = default;
    /// A microphone, in its own channel count. Refuses a monitor of an output.
    virtual base::Task<std::unique_ptr<CaptureStream>> openMicrophone(std::string uid, CaptureSink& sink) = 0;
    /// What the computer plays through the output whose monitor is named, without what this process plays, in stereo.
    virtual base::Task<std::unique_ptr<CaptureStream>> openSystemAudio(std::string sourceName, CaptureSink& sink) = 0;
};

}  // namespace tessivox::audio
