#include "support/SoundPlayer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace tessivox::testing {
namespace {

constexpr std::size_t kFrameBytes = 2 * sizeof(float);
constexpr pa_usec_t kPollMicroseconds = 20000;

void wake(pa_threaded_mainloop* loop) { pa_threaded_mainloop_signal(loop, 0); }

}  // namespace

SoundSignal sineSignal(double leftHertz, double rightHertz) {
    return [=](std::uint64_t frame, std::span<float> stereo) {
        for (std::size_t index = 0; index < stereo.size(); ++index) {
            const double hertz = index % 2 == 0 ? leftHertz : rightHertz;
            const double turns = hertz * static_cast<double>(frame + index / 2) / kSoundRate;
            stereo[index] = static_cast<float>(0.25 * std::sin(2 * std::numbers::pi * (turns - std::floor(turns))));
        }
    };
}

SoundSignal clickSignal(base::Duration period) {
    const auto periodFrames = static_cast<std::uint64_t>(std::llround(base::toSeconds(period) * kSoundRate));
    return [=](std::uint64_t frame, std::span<float> stereo) {
        for (std::size_t index = 0; index < stereo.size(); ++index) {
            const auto place = (frame + index / 2) % periodFrames;
            const double phase = (static_cast<double>(place) + 0.5) / kClickFrames;
            const double value = phase < 1 ? 0.4 * (1 - std::cos(2 * std::numbers::pi * phase)) : 0;
            stereo[index] = static_cast<float>(value);
        }
    };
}

std::vector<base::HostTime> findClicks(std::span<const float> mono, base::HostTime start) {
    std::vector<base::HostTime> clicks;
    constexpr std::size_t margin = 2 * kClickFrames;
    for (std::size_t index = 0; index + margin < mono.size(); ++index) {
        if (mono[index] < 0.1F) continue;
        // The centre of weight is insensitive to what a resampler does to the pulse's flanks.
        double weight = 0;
        double moment = 0;
        const auto from = index < margin ? 0 : index - margin;
        for (std::size_t near = from; near < index + margin; ++near) {
            weight += static_cast<double>(mono[near]);
            moment += static_cast<double>(mono[near]) * static_cast<double>(near);
        }
        const double first = moment / weight - (static_cast<double>(kClickFrames) - 1) / 2;
        clicks.push_back(start + base::fromSeconds(first / kSoundRate));
        index += margin;
    }
    return clicks;
}

SoundPlayer::SoundPlayer(const std::string& address, const std::string& sink, SoundSignal signal)
    : signal_(std::move(signal)), loop_(pa_threaded_mainloop_new()) {
    pa_threaded_mainloop_start(loop_);
    pa_threaded_mainloop_lock(loop_);
    try {
        start(address, sink);
    } catch (...) {
        pa_threaded_mainloop_unlock(loop_);
        close();
        throw;
    }
    pa_threaded_mainloop_unlock(loop_);
}

SoundPlayer::~SoundPlayer() { close(); }

void SoundPlayer::start(const std::string& address, const std::string& sink) {
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Sound player");
    pa_context_set_state_callback(
        context_, [](pa_context*, void* loop) { wake(static_cast<pa_threaded_mainloop*>(loop)); }, loop_);
    pa_context_connect(context_, address.empty() ? nullptr : address.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr);
    waitUntil([this] { return pa_context_get_state(context_) == PA_CONTEXT_READY; });
    const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, kSoundRate, 2};
    stream_ = pa_stream_new(context_, "Test signal", &spec, nullptr);
    pa_stream_set_write_callback(stream_, &SoundPlayer::onWritable, this);
    pa_stream_set_state_callback(
        stream_, [](pa_stream*, void* loop) { wake(static_cast<pa_threaded_mainloop*>(loop)); }, loop_);
    constexpr auto whole = static_cast<std::uint32_t>(-1);
    const pa_buffer_attr buffering{whole, static_cast<std::uint32_t>(kFrameBytes * kSoundRate / 20), whole, whole,
                                   whole};
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY);
    pa_stream_connect_playback(stream_, sink.c_str(), &buffering, flags, nullptr, nullptr);
    waitUntil([this] { return pa_stream_get_state(stream_) == PA_STREAM_READY; });
    poll_ = pa_context_rttime_new(context_, pa_rtclock_now(), &SoundPlayer::onPoll, this);
    waitUntil([this] { return !origins_.empty(); });
}

void SoundPlayer::waitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        const bool isGood = PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) &&
                            (!stream_ || PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)));
        if (!isGood) throw std::runtime_error(std::string("cannot play: ") + pa_strerror(pa_context_errno(context_)));
        pa_threaded_mainloop_wait(loop_);
    }
}

void SoundPlayer::close() {
    pa_threaded_mainloop_stop(loop_);
    if (poll_) pa_threaded_mainloop_get_api(loop_)->time_free(poll_);
    if (stream_) {
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
    }
    if (context_) {
        pa_context_disconnect(context_);
        pa_context_unref(context_);
    }
    pa_threaded_mainloop_free(loop_);
}

void SoundPlayer::onWritable(pa_stream* stream, std::size_t bytes, void* self) {
    auto& me = *static_cast<SoundPlayer*>(self);
    me.samples_.resize(bytes / kFrameBytes * 2);
    me.signal_(me.frame_, me.samples_);
    me.frame_ += me.samples_.size() / 2;
    pa_stream_write(stream, me.samples_.data(), me.samples_.size() * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
}

void SoundPlayer::onPoll(pa_mainloop_api*, pa_time_event* event, const timeval*, void* self) {
    auto& me = *static_cast<SoundPlayer*>(self);
    if (auto* operation = pa_stream_update_timing_info(me.stream_, &SoundPlayer::onTiming, self)) {
        pa_operation_unref(operation);
    }
    pa_context_rttime_restart(me.context_, event, pa_rtclock_now() + kPollMicroseconds);
}

void SoundPlayer::onTiming(pa_stream* stream, int, void* self) {
    auto& me = *static_cast<SoundPlayer*>(self);
    const auto* info = pa_stream_get_timing_info(stream);
    if (!info || !info->playing || info->read_index <= 0) return;
    const auto monotonic = std::chrono::steady_clock::now().time_since_epoch();
    const auto real = std::chrono::system_clock::now().time_since_epoch();
    const auto stamp =
        std::chrono::seconds(info->timestamp.tv_sec) + std::chrono::microseconds(info->timestamp.tv_usec);
    const double heard =
        static_cast<double>(info->read_index) / (kFrameBytes * kSoundRate) - static_cast<double>(info->sink_usec) / 1e6;
    me.origins_.push_back(base::HostTime(monotonic - (real - stamp) - base::fromSeconds(heard)));
    wake(me.loop_);
}

base::HostTime SoundPlayer::origin() {
    pa_threaded_mainloop_lock(loop_);
    auto sorted = origins_;
    pa_threaded_mainloop_unlock(loop_);
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    return sorted[sorted.size() / 2];
}

void SoundPlayer::cork(bool isCorked) {
    pa_threaded_mainloop_lock(loop_);
    if (auto* operation = pa_stream_cork(stream_, isCorked ? 1 : 0, nullptr, nullptr)) pa_operation_unref(operation);
    pa_threaded_mainloop_unlock(loop_);
}

}  // namespace tessivox::testing
