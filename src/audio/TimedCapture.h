#pragma once

#include <cstdint>
#include <span>

#include "audio/AudioRing.h"
#include "audio/OriginEstimator.h"
#include "audio/ports/CaptureBackend.h"

namespace tessivox::audio {

/// Gives a capture stream's buffers their host times. A buffer waits until a timing reply that was asked for after its
/// arrival is in: only such a reply knows of a stall just before it. Capture thread only; no allocation after
/// construction.
class TimedCapture {
public:
    TimedCapture(const AudioFormat& format, CaptureSink& sink);

    /// Frames as the server delivered them, interleaved.
    void addAudio(std::span<const float> interleaved, base::HostTime arrival);
    /// Frames that the server counted but lost.
    void addHole(std::uint64_t frames, base::HostTime arrival);
    /// A timing reply: when it was asked for, and its word for the host time of the stream's frame 0.
    void addTimingReply(base::HostTime requested, base::HostTime origin);
    /// The stream was suspended and goes on.
    void restart(base::HostTime now);

    /// Hands on all that waits, by the best time there is: the stream ends, or what follows has another origin.
    void flush();

    /// Whether to ask for a timing reply now; remembers that it was asked. Often while the estimate is young, ten times
    /// a second later, never while one is under way unless it has become overdue.
    bool wantsTimingReply(base::HostTime now);
    /// Hands on what has waited too long for a reply. Call it with each event of the stream.
    void releaseOverdue(base::HostTime now);

private:
    struct Held {
        std::uint64_t firstFrame = 0;
        base::HostTime arrival;
    };
    static constexpr base::Duration kLongestHold = std::chrono::milliseconds(250);
    static constexpr base::Duration kEagerInterval = std::chrono::milliseconds(10);
    static constexpr base::Duration kInterval = std::chrono::milliseconds(100);
    /// Without audio for so long the device has stalled, or only the server was late; replies from before and during
    /// the stall don't count.
    static constexpr base::Duration kStall = std::chrono::milliseconds(150);

    AudioFormat format_;
    CaptureSink& sink_;
    OriginEstimator estimator_;
    AudioRing<Held> held_;
    std::uint64_t frames_ = 0;  ///< frames received or lost so far
    base::HostTime lastArrival_{};
    base::HostTime lastRequest_{};
    base::HostTime newestReply_{};  ///< when the newest reply was asked for
    base::HostTime validFrom_{};    ///< replies asked for earlier speak of another origin
    bool isReplyPending_ = false;

    void doubt(base::HostTime now);
    void release(bool (TimedCapture::*mayGo)(const Held&, base::HostTime) const, base::HostTime now);
    bool isTimed(const Held& held, base::HostTime now) const;
    bool isOverdue(const Held& held, base::HostTime now) const;
    void emit(const AudioRing<Held>::Record& record);
};

}  // namespace tessivox::audio
