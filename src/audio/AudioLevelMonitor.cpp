#include "audio/AudioLevelMonitor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <span>

namespace tessivox::audio {
namespace {

/// In parts that do not wait for each other, since this runs on the capture thread.
float sumOfSquares(std::span<const float> samples) {
    std::array<float, 16> parts{};
    while (samples.size() >= parts.size()) {
        for (std::size_t index = 0; index < parts.size(); ++index) parts[index] += samples[index] * samples[index];
        samples = samples.subspan(parts.size());
    }
    for (std::size_t index = 0; index < samples.size(); ++index) parts[index] += samples[index] * samples[index];
    return std::accumulate(parts.begin(), parts.end(), 0.0F);
}

}  // namespace

float AudioLevelMonitor::bufferLevel(const AudioBuffer& buffer) noexcept {
    if (buffer.samples.empty()) return 0;
    const auto rms = std::sqrt(sumOfSquares(buffer.samples) / static_cast<float>(buffer.samples.size()));
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
