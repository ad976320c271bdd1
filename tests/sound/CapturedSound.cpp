#include "sound/CapturedSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tessivox::testing {

void CapturedSound::onAudio(const audio::AudioBuffer& buffer, base::HostTime time) {
    const std::lock_guard lock(mutex_);
    format_ = buffer.format;
    buffers_.push_back({time, time + buffer.duration(), {buffer.samples.begin(), buffer.samples.end()}});
    frames_ += buffer.frames();
}

void CapturedSound::onEnded(const std::string& why) {
    EXPECT_FALSE(reason) << "ended twice";
    reason = why;
}

audio::AudioFormat CapturedSound::format() const {
    const std::lock_guard lock(mutex_);
    return format_;
}

double CapturedSound::seconds() const {
    const std::lock_guard lock(mutex_);
    return static_cast<double>(frames_) / format_.sampleRate;
}

base::HostTime CapturedSound::end() const {
    const std::lock_guard lock(mutex_);
    return buffers_.empty() ? base::HostTime{} : buffers_.back().end;
}

std::vector<float> CapturedSound::channel(std::size_t index, base::HostTime from, base::Duration length) const {
    const std::lock_guard lock(mutex_);
    std::vector<float> result(static_cast<std::size_t>(base::toSeconds(length) * format_.sampleRate));
    for (const auto& buffer : buffers_) place(buffer, index, from, result);
    return result;
}

std::vector<float> CapturedSound::newest(std::size_t index, base::Duration length) const {
    return channel(index, end() - length, length);
}

base::Duration CapturedSound::worstJoin(base::HostTime from) const {
    const std::lock_guard lock(mutex_);
    base::Duration worst{};
    for (std::size_t index = 1; index < buffers_.size(); ++index) {
        if (buffers_[index - 1].time < from) continue;
        worst = std::max(worst, std::chrono::abs(buffers_[index].time - buffers_[index - 1].end));
    }
    return worst;
}

void CapturedSound::place(const Buffer& buffer, std::size_t index, base::HostTime from,
                          std::vector<float>& result) const {
    const auto channels = static_cast<std::size_t>(format_.channels);
    const auto start = std::llround(base::toSeconds(buffer.time - from) * format_.sampleRate);
    for (std::size_t frame = 0; frame < buffer.samples.size() / channels; ++frame) {
        const auto target = start + static_cast<long long>(frame);
        if (target < 0 || target >= static_cast<long long>(result.size())) continue;
        result[static_cast<std::size_t>(target)] = buffer.samples[frame * channels + index];
    }
}

Tone measureTone(const std::vector<float>& sound, double hertz, double sampleRate) {
    double sine = 0;
    double cosine = 0;
    double power = 0;
    for (std::size_t index = 0; index < sound.size(); ++index) {
        const double angle = 2 * std::numbers::pi * hertz * static_cast<double>(index) / sampleRate;
        const auto sample = static_cast<double>(sound[index]);
        sine += sample * std::sin(angle);
        cosine += sample * std::cos(angle);
        power += sample * sample;
    }
    const auto count = static_cast<double>(sound.size());
    const double amplitude = 2 * std::hypot(sine, cosine) / count;
    return {amplitude, std::sqrt(std::max(0.0, power / count - amplitude * amplitude / 2))};
}

}  // namespace tessivox::testing
