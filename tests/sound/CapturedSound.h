#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "audio/ports/CaptureBackend.h"

namespace tessivox::testing {

/// Keeps what a capture delivers.
class CapturedSound final : public audio::CaptureSink {
public:
    void onAudio(const audio::AudioBuffer& buffer, base::HostTime time) override;
    void onEnded(const std::string& why) override;

    /// Why the stream ended. Main thread.
    std::optional<std::string> reason;

    audio::AudioFormat format() const;
    /// Audio delivered so far.
    double seconds() const;
    /// Host time of the end of the newest buffer.
    base::HostTime end() const;
    /// One channel laid out by host time from the given moment on; zeros where nothing was delivered.
    std::vector<float> channel(std::size_t index, base::HostTime from, base::Duration length) const;
    /// The newest stretch of one channel.
    std::vector<float> newest(std::size_t index, base::Duration length) const;
    /// How far, at worst, a buffer's time lies from the end of the one before it.
    base::Duration worstJoin(base::HostTime from) const;

private:
    struct Buffer {
        base::HostTime time;
        base::HostTime end;
        std::vector<float> samples;
    };
    mutable std::mutex mutex_;
    audio::AudioFormat format_;
    std::vector<Buffer> buffers_;
    std::size_t frames_ = 0;

    void place(const Buffer& buffer, std::size_t index, base::HostTime from, std::vector<float>& result) const;
};

/// A frequency's amplitude in a stretch of sound, and the root mean square of the rest.
struct Tone {
    double amplitude = 0;
    double residual = 0;
};
Tone measureTone(const std::vector<float>& sound, double hertz, double sampleRate = 48000);

}  // namespace tessivox::testing
