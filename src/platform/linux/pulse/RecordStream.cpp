#include "platform/linux/pulse/RecordStream.h"

#include <pulse/error.h>
#include <pulse/rtclock.h>

#include <exception>
#include <utility>

#include "platform/linux/pulse/HostClock.h"
#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {
namespace {

constexpr pa_usec_t kWatch = 50000;
constexpr pa_usec_t kFragment = 20000;

pa_buffer_attr makeBuffering(const pa_sample_spec& spec) {
    constexpr auto unset = static_cast<std::uint32_t>(-1);
    return {unset, unset, unset, unset, static_cast<std::uint32_t>(pa_usec_to_bytes(kFragment, &spec))};
}

pa_sample_spec makeSpec(const RecordTarget& target) {
    return {PA_SAMPLE_FLOAT32LE, RecordStream::kRate, target.channels.channels};
}

}  // namespace

RecordStream::RecordStream(std::shared_ptr<Connection> connection, RecordTarget target, audio::CaptureSink& sink)
    : connection_(std::move(connection)),
      target_(std::move(target)),
      timed_({kRate, target_.channels.channels}, sink),
      frameBytes_(sizeof(float) * target_.channels.channels) {
    const Loop::Lock lock(connection_->loop());
    connect();
}

RecordStream::~RecordStream() {
    const Loop::Lock lock(connection_->loop());
    timed_.flush();
    if (poll_) connection_->loop().api()->time_free(poll_);
    if (timing_) {
        pa_operation_cancel(timing_);
        pa_operation_unref(timing_);
    }
    if (!stream_) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_set_suspended_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
}

base::Task<void> RecordStream::opened() { return awaitAnswer(connection_->scheduler(), state_->opened); }

void RecordStream::connect() {
    const auto spec = makeSpec(target_);
    const auto buffering = makeBuffering(spec);
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    stream_ = pa_stream_new(connection_->context(), "Recording", &spec, &target_.channels);
    if (!stream_) return fail(PA_ERR_INVALID);
    pa_stream_set_state_callback(stream_, &RecordStream::onState, this);
    pa_stream_set_suspended_callback(stream_, &RecordStream::onSuspended, this);
    if (target_.sinkInput) pa_stream_set_monitor_stream(stream_, *target_.sinkInput);
    if (pa_stream_connect_record(stream_, target_.source.c_str(), &buffering, flags) < 0) {
        fail(pa_context_errno(connection_->context()));
    }
}

void RecordStream::onState(pa_stream* stream, void* self) {
    auto& me = *static_cast<RecordStream*>(self);
    switch (pa_stream_get_state(stream)) {
        case PA_STREAM_READY:
            return me.run();
        case PA_STREAM_FAILED:
        case PA_STREAM_TERMINATED:
            return me.fail(pa_context_errno(me.connection_->context()));
        case PA_STREAM_UNCONNECTED:
        case PA_STREAM_CREATING:
            return;
    }
}

void RecordStream::run() {
    const char* device = pa_stream_get_device_name(stream_);
    // A server may have given another device than the one asked for. Nothing has been read from it yet.
    if (!target_.sinkInput && (!device || target_.source != device)) return fail(PA_ERR_NOENTITY);
    pa_stream_set_read_callback(stream_, &RecordStream::onReadable, this);
    poll_ = pa_context_rttime_new(connection_->context(), pa_rtclock_now(), &RecordStream::onPoll, this);
    connection_->scheduler().post([weak = std::weak_ptr(state_)] {
        if (const auto state = weak.lock()) state->opened.succeed(true);
    });
}

void RecordStream::fail(int pulseCode) {
    connection_->scheduler().post([weak = std::weak_ptr(state_), error = errorFor(pulseCode)] {
        const auto state = weak.lock();
        if (!state) return;
        state->opened.fail(std::make_exception_ptr(error));
        if (const auto ended = std::exchange(state->ended, nullptr)) ended(error.description());
    });
}

base::Error RecordStream::errorFor(int pulseCode) const {
    switch (pulseCode) {
        case PA_ERR_KILLED:
            return makeError(PulseFailure::deviceRemoved, target_.description);
        case PA_ERR_CONNECTIONTERMINATED:
            return makeError(PulseFailure::connectionLost);
        case PA_ERR_ACCESS:
            return makeError(PulseFailure::accessDenied);
        default:
            return makeError(PulseFailure::captureRefused, target_.description);
    }
}

void RecordStream::onReadable(pa_stream*, std::size_t, void* self) { static_cast<RecordStream*>(self)->read(); }

void RecordStream::read() {
    const auto arrival = hostNow();
    const void* data = nullptr;
    for (std::size_t bytes = 0; pa_stream_peek(stream_, &data, &bytes) == 0 && bytes > 0; pa_stream_drop(stream_)) {
        if (data) {
            timed_.addAudio({static_cast<const float*>(data), bytes / sizeof(float)}, arrival);
        } else {
            timed_.addHole(bytes / frameBytes_, arrival);
        }
    }
    timed_.releaseOverdue(arrival);
    // Asked for at once, so that each reply finds the device in the same phase of its block.
    if (timed_.wantsTimingReply(arrival)) askForTiming();
}

void RecordStream::onSuspended(pa_stream* stream, void* self) {
    if (pa_stream_is_suspended(stream) == 0) static_cast<RecordStream*>(self)->timed_.restart(hostNow());
}

void RecordStream::onPoll(pa_mainloop_api*, pa_time_event* event, const timeval*, void* self) {
    auto& me = *static_cast<RecordStream*>(self);
    const auto now = hostNow();
    me.timed_.releaseOverdue(now);
    pa_context_rttime_restart(me.connection_->context(), event, pa_rtclock_now() + kWatch);
}

void RecordStream::askForTiming() {
    if (timing_) {
        pa_operation_cancel(timing_);
        pa_operation_unref(timing_);
    }
    timingRequested_ = hostNow();
    timing_ = pa_stream_update_timing_info(stream_, &RecordStream::onTiming, this);
}

void RecordStream::onTiming(pa_stream*, int success, void* self) {
    if (success) static_cast<RecordStream*>(self)->takeTiming();
}

void RecordStream::takeTiming() {
    // Polled replies are exact to a fraction of a millisecond; what libpulse interpolates between them is not.
    const auto* info = pa_stream_get_timing_info(stream_);
    if (!info || info->write_index_corrupt) return;
    const auto frames = static_cast<std::uint64_t>(info->write_index) / frameBytes_;
    const auto recorded =
        std::chrono::seconds(frames / kRate) + base::Duration(frames % kRate * std::nano::den / kRate);
    // A monitor's source delay is zero and the delay of what it will play counts against it.
    const auto delay = std::chrono::microseconds(info->source_usec) - std::chrono::microseconds(info->sink_usec);
    timed_.addTimingReply(timingRequested_, hostTimeOf(info->timestamp) - recorded - delay);
}

}  // namespace tessivox::pulse
