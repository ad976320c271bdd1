#include "audio/AudioLevelMonitor.h"

#include <algorithm>
#include <cmath>

namespace tessivox::audio {

float AudioLevelMonitor::bufferLevel(const AudioBuffer& buffer) noexcept {
    if (buffer.samples.empty()) return 0;
    float sum = 0;
    for (const float sample : buffer.samples) sum += sample * sample;
    const auto rms = std::sqrt(sum / static_cast<float>(buffer.samples.size()));
    return std::min(rms * 10, 1.0F);
}

void AudioLevelMonitor::update(Average& average, float level, base::Observable<float>& published) {
    average.smoothed = level * kSmoothing + average.smoothed * (1 - kSmoothing);
    const auto now = scheduler_.now();
    if (average.lastPublish != base::HostTime::min() && now - average.lastPublish < kMinInterval) return;
    average.lastPublish = now;
    published.set(average.smoothed);
}

}  // namespace tessivox::audio
