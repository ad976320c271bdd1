#pragma once

#include "audio/AudioBuffer.h"
#include "base/Observable.h"
#include "base/Scheduler.h"

namespace tessivox::audio {

/// Thins the levels of two sources to what a view can show: running averages, published ten times a second at most.
/// Main thread.
class AudioLevelMonitor {
public:
    explicit AudioLevelMonitor(base::Scheduler& scheduler) : scheduler_(scheduler) {}

    base::Observable<float> microphoneLevel{0.0F};   ///< 0 to 1
    base::Observable<float> systemAudioLevel{0.0F};  ///< 0 to 1

    void updateMicrophoneLevel(float level) { update(microphone_, level, microphoneLevel); }
    void updateSystemAudioLevel(float level) { update(systemAudio_, level, systemAudioLevel); }

    /// Root mean square over all samples, times ten so that speech fills a meter, at most 1. Any thread.
    static float bufferLevel(const AudioBuffer& buffer) noexcept;

private:
    struct Average {
        float smoothed = 0;
        base::HostTime lastPublish = base::HostTime::min();
    };
    static constexpr float kSmoothing = 0.3F;
    static constexpr base::Duration kMinInterval = std::chrono::milliseconds(100);

    base::Scheduler& scheduler_;
    Average microphone_;
    Average systemAudio_;

    void update(Average& average, float level, base::Observable<float>& published);
};

}  // namespace tessivox::audio
