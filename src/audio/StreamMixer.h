#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "audio/ports/CaptureBackend.h"

namespace tessivox::audio {

/// Lays timed stereo streams over each other by host time. One stream is the whole of what is to be heard; parts of it
/// can take its place, so that what is in none of them is left out. While nothing is left out the whole passes
/// untouched; otherwise the output waits until every stream has come as far, but not longer than kLongestWait for one
/// that stalls. Changes from the whole to its parts and back fade within 10 ms, in step by the clock. One thread.
class StreamMixer {
public:
    static constexpr base::Duration kLongestWait = std::chrono::milliseconds(400);

    /// All streams have this rate and two channels. onEnded of the sink is not used.
    StreamMixer(int sampleRate, CaptureSink& sink);
    StreamMixer(const StreamMixer&) = delete;
    ~StreamMixer();

    CaptureSink& whole();
    /// A new part. It takes effect from its first frame on. The mixer owns it.
    CaptureSink& addPart();
    /// Ends a part: what it has delivered is still played. Nothing may be handed to it any more.
    void removePart(CaptureSink& part);

    /// From now on the parts make up the sound, as soon as each has begun (one that does not begin is not waited for).
    void useParts();
    /// The whole makes up the sound again from this time on.
    void useWhole(base::HostTime from);
    /// Whether nothing but the whole is heard, now and for what is still held.
    bool isWhole() const;

private:
    class Track;

    const std::int64_t rate_;
    const std::int64_t fade_;  ///< frames
    const std::int64_t wait_;  ///< frames
    CaptureSink& sink_;
    std::vector<float> output_;
    std::unique_ptr<Track> whole_;
    std::list<std::unique_ptr<Track>> parts_;
    std::int64_t emitted_ = 0;  ///< the next frame to hand on, counted from the host clock's zero

    std::int64_t floor_ = 0;  ///< where the output last began anew: streams are waited for from here on

    bool isSwitchPending_ = false;  ///< parts are wanted, but have not all begun
    std::int64_t switchAt_ = 0;     ///< frame from which the whole fades towards its target
    float wholeGain_ = 1;
    float wholeTarget_ = 1;

    void take(Track& track, const AudioBuffer& buffer, base::HostTime time);
    void pass(const AudioBuffer& buffer, base::HostTime time);
    void beginAt(std::int64_t frame);
    std::int64_t reached(const Track& track) const;
    bool isStalled(const Track& track, std::int64_t newest) const;
    std::int64_t newestFrame() const;
    std::int64_t readyFrame() const;
    void decideSwitch();
    void emitUntil(std::int64_t end);
    void emit(std::int64_t count);
    std::int64_t frameAt(base::HostTime time) const;
    base::HostTime timeOf(std::int64_t frame) const;
};

}  // namespace tessivox::audio
