#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "audio/AudioBuffer.h"
#include "base/Units.h"

namespace tessivox::audio {

/// Maps host times to frames of the recording, whose time stands still during a pause. A buffer is judged by its own
/// time, not by when it arrives, so that one held back across a pause still lands where it belongs. Not thread-safe.
class RecordingClock {
public:
    explicit RecordingClock(double sampleRate) : sampleRate_(sampleRate) {}

    void pause(base::HostTime now);
    void resume(base::HostTime now);

    /// Host time of frame 0; absent until the first buffer outside a pause.
    std::optional<base::HostTime> start() const { return start_; }

    /// Where a buffer goes: which of its own frames count, and the recording's frame of the first of them.
    struct Placement {
        std::size_t skip = 0;
        std::size_t count = 0;
        std::int64_t position = 0;
    };
    /// Absent if the buffer lies in a pause, before the start, or before a pause that is not the latest. The first
    /// buffer placed defines frame 0. The buffer's format may have another rate than the recording.
    std::optional<Placement> place(base::HostTime time, std::size_t frames, double bufferRate);

private:
    struct Pause {
        base::HostTime begin;
        base::HostTime end = base::HostTime::max();
    };

    double sampleRate_;
    std::optional<base::HostTime> start_;
    std::optional<Pause> latest_;
    base::HostTime earlierEnd_ = base::HostTime::min();  ///< end of the pause before the latest
    base::Duration earlierPauses_{};                     ///< sum of the pauses before the latest

    bool isPaused() const { return latest_ && latest_->end == base::HostTime::max(); }
    std::int64_t positionOf(base::HostTime time, base::Duration pauses) const;
};

}  // namespace tessivox::audio
