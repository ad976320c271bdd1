#include "audio/RecordingClock.h"

#include <algorithm>
#include <cmath>

namespace tessivox::audio {

void RecordingClock::pause(base::HostTime now) {
    if (isPaused()) return;
    if (latest_) {
        if (start_) earlierPauses_ += latest_->end - std::max(latest_->begin, *start_);
        earlierEnd_ = latest_->end;
    }
    latest_ = Pause{now};
}

void RecordingClock::resume(base::HostTime now) {
    if (isPaused()) latest_->end = now;
}

std::optional<RecordingClock::Placement> RecordingClock::place(base::HostTime time, std::size_t frames,
                                                               double bufferRate) {
    const auto framesUntil = [&](base::HostTime moment) {
        const auto exact = std::ceil(base::toSeconds(moment - time) * bufferRate - 1e-6);
        return static_cast<std::size_t>(std::clamp(exact, 0.0, static_cast<double>(frames)));
    };
    const auto timeOf = [&](std::size_t frame) {
        return time + base::fromSeconds(static_cast<double>(frame) / bufferRate);
    };

    Placement placement{0, frames, 0};
    auto pauses = earlierPauses_;
    if (latest_ && time >= latest_->begin) {
        if (latest_->end == base::HostTime::max()) return std::nullopt;
        placement.skip = framesUntil(latest_->end);
        placement.count = frames - placement.skip;
        if (start_) pauses += latest_->end - latest_->begin;
    } else if (latest_) {
        placement.count = framesUntil(latest_->begin);
    }
    if (placement.count == 0 || time < earlierEnd_) return std::nullopt;

    const auto first = timeOf(placement.skip);
    if (!start_) {
        start_ = first;
        earlierPauses_ = base::Duration::zero();
        if (latest_ && latest_->end <= first) latest_.reset();
        return placement;
    }
    if (first < *start_) return std::nullopt;
    placement.position = positionOf(first, pauses);
    return placement;
}

std::int64_t RecordingClock::positionOf(base::HostTime time, base::Duration pauses) const {
    const auto elapsed = time - *start_ - pauses;
    return static_cast<std::int64_t>(sampleRate_ * static_cast<double>(elapsed.count()) / 1e9);
}

}  // namespace tessivox::audio
