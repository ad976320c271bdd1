#pragma once

#include <pulse/pulseaudio.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Units.h"

namespace tessivox::testing {

/// Fills interleaved stereo frames, the first of which has the given number.
using SoundSignal = std::function<void(std::uint64_t frame, std::span<float> stereo)>;

/// A sine on each side, amplitude 0.25.
SoundSignal sineSignal(double leftHertz, double rightHertz);
/// A pulse of kClickFrames frames on both sides at the start of each period.
SoundSignal clickSignal(base::Duration period);

inline constexpr int kSoundRate = 48000;
inline constexpr std::size_t kClickFrames = 48;

/// Host times of the clicks' starts in what was recorded: mono samples whose first has the given time.
std::vector<base::HostTime> findClicks(std::span<const float> mono, base::HostTime start);

/// Plays a signal into a sink of a sound server from this process, on a thread of its own. Throws std::runtime_error if
/// it cannot. Returns from the constructor once the server has begun to play.
class SoundPlayer {
public:
    SoundPlayer(const std::string& address, const std::string& sink, SoundSignal signal);
    SoundPlayer(const SoundPlayer&) = delete;
    ~SoundPlayer();

    /// The host time at which frame 0 left the sink, as the server tells: the median of the replies so far.
    base::HostTime origin();
    /// Pauses or resumes at the server.
    void cork(bool isCorked);

private:
    SoundSignal signal_;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    pa_time_event* poll_ = nullptr;
    std::uint64_t frame_ = 0;
    std::vector<float> samples_;
    std::vector<base::HostTime> origins_;

    void start(const std::string& address, const std::string& sink);
    void waitUntil(const std::function<bool()>& condition);
    void close();
    static void onWritable(pa_stream* stream, std::size_t bytes, void* self);
    static void onTiming(pa_stream* stream, int success, void* self);
    static void onPoll(pa_mainloop_api* api, pa_time_event* event, const timeval* time, void* self);
};

}  // namespace tessivox::testing
