#include "audio/TimedCapture.h"

#include <algorithm>

namespace tessivox::audio {
namespace {

std::size_t secondOf(const AudioFormat& format) {
    return static_cast<std::size_t>(format.sampleRate) * static_cast<std::size_t>(format.channels);
}

}  // namespace

TimedCapture::TimedCapture(const AudioFormat& format, CaptureSink& sink)
    : format_(format), sink_(sink), held_(secondOf(format), 1024) {}

void TimedCapture::addAudio(std::span<const float> interleaved, base::HostTime arrival) {
    if (frames_ > 0 && arrival - lastArrival_ > kStall) doubt(arrival);
    lastArrival_ = arrival;
    const auto channels = static_cast<std::size_t>(format_.channels);
    const auto largest = secondOf(format_) / 4;
    while (!interleaved.empty()) {
        const auto part = interleaved.first(std::min(interleaved.size(), largest / channels * channels));
        // A full store means that replies fail to come: the oldest goes with the best time there is.
        while (!held_.push({frames_, arrival}, part)) {
            emit(*held_.front());
            held_.pop();
        }
        frames_ += part.size() / channels;
        interleaved = interleaved.subspan(part.size());
    }
}

void TimedCapture::addHole(std::uint64_t frames, base::HostTime arrival) {
    frames_ += frames;
    lastArrival_ = arrival;
    restart(arrival);
}

void TimedCapture::addTimingReply(base::HostTime requested, base::HostTime origin) {
    isReplyPending_ = false;
    if (requested < validFrom_) return;
    estimator_.add(origin);
    newestReply_ = requested;
    release(&TimedCapture::isTimed, requested);
}

void TimedCapture::flush() {
    while (const auto* record = held_.front()) {
        emit(*record);
        held_.pop();
    }
}

void TimedCapture::restart(base::HostTime now) {
    flush();
    estimator_.restart();
    validFrom_ = now;
}

void TimedCapture::doubt(base::HostTime now) {
    flush();
    estimator_.doubt();
    validFrom_ = now;
}

bool TimedCapture::wantsTimingReply(base::HostTime now) {
    const bool isEager = !estimator_.isSettled() && held_.front();
    const auto interval = isReplyPending_ ? kLongestHold : isEager ? kEagerInterval : kInterval;
    if (now - lastRequest_ < interval) return false;
    lastRequest_ = now;
    isReplyPending_ = true;
    return true;
}

void TimedCapture::releaseOverdue(base::HostTime now) { release(&TimedCapture::isOverdue, now); }

void TimedCapture::release(bool (TimedCapture::*mayGo)(const Held&, base::HostTime) const, base::HostTime now) {
    for (const auto* record = held_.front(); record && (this->*mayGo)(record->header, now); record = held_.front()) {
        emit(*record);
        held_.pop();
    }
}

bool TimedCapture::isTimed(const Held& held, base::HostTime) const {
    return estimator_.isSettled() && newestReply_ >= held.arrival;
}

bool TimedCapture::isOverdue(const Held& held, base::HostTime now) const { return now - held.arrival >= kLongestHold; }

void TimedCapture::emit(const AudioRing<Held>::Record& record) {
    const AudioBuffer buffer{format_, record.samples};
    const auto origin = estimator_.origin();
    const auto time = origin ? OriginEstimator::timeOf(*origin, record.header.firstFrame, format_.sampleRate)
                             : record.header.arrival - buffer.duration();
    sink_.onAudio(buffer, time);
}

}  // namespace tessivox::audio
