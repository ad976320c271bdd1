#include "audio/StreamMixer.h"

#include <algorithm>
#include <optional>

namespace tessivox::audio {
namespace {

constexpr std::int64_t kChunk = 1024;
constexpr std::int64_t kChannels = 2;
constexpr std::int64_t kSecond = std::nano::den;

}  // namespace

/// What one stream has delivered and the output has not taken yet: up to a second, by frame of the host clock.
class StreamMixer::Track final : public CaptureSink {
public:
    Track(StreamMixer& mixer, std::int64_t from)
        : mixer_(mixer), ring_(static_cast<std::size_t>(mixer.rate_ * kChannels)), end_(from) {}

    void onAudio(const AudioBuffer& buffer, base::HostTime time) override { mixer_.take(*this, buffer, time); }
    void onEnded(const std::string&) override {}

    std::int64_t capacity() const { return mixer_.rate_; }
    bool hasBegun() const { return first_.has_value(); }
    std::int64_t first() const { return *first_; }
    /// One past the newest frame; before the first one, where it is waited for.
    std::int64_t end() const { return end_; }
    bool isRemoved() const { return isRemoved_; }
    void remove() { isRemoved_ = true; }

    /// What comes before this frame has been handed on without being stored.
    void skipTo(std::int64_t frame) { end_ = frame; }

    /// Stores samples from a frame on, without those before `oldest`. A gap to what came before is silence.
    void place(std::int64_t frame, std::span<const float> samples, std::int64_t oldest) {
        const auto stop = std::min(frame + static_cast<std::int64_t>(samples.size()) / kChannels, oldest + capacity());
        const auto start = std::max(frame, oldest);
        if (start >= stop) {
            // Too late to be heard, but alive: from now on it is waited for again.
            end_ = std::max(end_, stop);
            return;
        }
        if (!first_) first_ = start;
        for (auto gap = std::max(end_, oldest); hasBegun() && gap < start; ++gap) store(gap, {0, 0});
        for (auto next = start; next < stop; ++next) {
            const auto* sample = &samples[static_cast<std::size_t>((next - frame) * kChannels)];
            store(next, {sample[0], sample[1]});
        }
        end_ = stop;
    }

    /// Adds a frame, multiplied, to an output frame.
    void addTo(float* output, std::int64_t frame, float gain) const {
        if (!first_ || frame < *first_ || frame >= end_) return;
        const auto* sample = &ring_[indexOf(frame)];
        output[0] += sample[0] * gain;
        output[1] += sample[1] * gain;
    }

    /// Fades in from the first frame, and out to the last one once removed.
    float edgeGain(std::int64_t frame) const {
        if (!first_) return 0;
        const auto fade = static_cast<float>(mixer_.fade_);
        const auto in = std::min(1.0F, static_cast<float>(frame - *first_ + 1) / fade);
        return isRemoved_ ? std::min(in, static_cast<float>(end_ - frame) / fade) : in;
    }

private:
    struct Frame {
        float left;
        float right;
    };
    StreamMixer& mixer_;
    std::vector<float> ring_;
    std::optional<std::int64_t> first_;
    std::int64_t end_;
    bool isRemoved_ = false;

    std::size_t indexOf(std::int64_t frame) const { return static_cast<std::size_t>(frame % capacity() * kChannels); }
    void store(std::int64_t frame, Frame value) {
        ring_[indexOf(frame)] = value.left;
        ring_[indexOf(frame) + 1] = value.right;
    }
};

StreamMixer::StreamMixer(int sampleRate, CaptureSink& sink)
    : rate_(sampleRate),
      fade_(sampleRate / 100),
      wait_(sampleRate * kLongestWait / std::chrono::seconds(1)),
      sink_(sink),
      output_(static_cast<std::size_t>(kChunk * kChannels)),
      whole_(std::make_unique<Track>(*this, 0)) {}

StreamMixer::~StreamMixer() = default;

CaptureSink& StreamMixer::whole() { return *whole_; }

CaptureSink& StreamMixer::addPart() { return *parts_.emplace_back(std::make_unique<Track>(*this, emitted_)); }

void StreamMixer::removePart(CaptureSink& part) {
    const auto found = std::ranges::find_if(parts_, [&](const auto& track) { return track.get() == &part; });
    if (found != parts_.end()) (*found)->remove();
}

void StreamMixer::useParts() { isSwitchPending_ = wholeTarget_ > 0; }

void StreamMixer::useWhole(base::HostTime from) {
    isSwitchPending_ = false;
    if (wholeTarget_ > 0) return;
    wholeTarget_ = 1;
    switchAt_ = std::max(emitted_, frameAt(from));
}

bool StreamMixer::isWhole() const { return !isSwitchPending_ && wholeGain_ >= 1 && wholeTarget_ >= 1; }

void StreamMixer::take(Track& track, const AudioBuffer& buffer, base::HostTime time) {
    const bool isPlain = isWhole() && parts_.empty() && whole_->end() <= emitted_;
    if (isPlain) return pass(buffer, time);
    const auto frame = frameAt(time);
    // After a long silence of all streams the output goes on where they do.
    if (frame > emitted_ + track.capacity()) beginAt(frame);
    track.place(frame, buffer.samples, emitted_);
    decideSwitch();
    emitUntil(readyFrame());
    std::erase_if(parts_, [this](const auto& part) { return part->isRemoved() && part->end() <= emitted_; });
}

void StreamMixer::pass(const AudioBuffer& buffer, base::HostTime time) {
    sink_.onAudio(buffer, time);
    emitted_ = frameAt(time + buffer.duration());
    whole_->skipTo(emitted_);
}

void StreamMixer::beginAt(std::int64_t frame) {
    emitUntil(newestFrame());
    emitted_ = std::max(emitted_, frame);
    floor_ = emitted_;
}

std::int64_t StreamMixer::reached(const Track& track) const { return std::max(track.end(), floor_); }

std::int64_t StreamMixer::newestFrame() const {
    auto newest = whole_->end();
    for (const auto& part : parts_) newest = std::max(newest, part->end());
    return newest;
}

bool StreamMixer::isStalled(const Track& track, std::int64_t newest) const { return newest - reached(track) > wait_; }

std::int64_t StreamMixer::readyFrame() const {
    const auto newest = newestFrame();
    auto ready = isStalled(*whole_, newest) ? newest : reached(*whole_);
    for (const auto& part : parts_) {
        if (!part->isRemoved() && !isStalled(*part, newest)) ready = std::min(ready, reached(*part));
    }
    if (isWhole() && parts_.empty()) return ready;
    // A part's last frames are kept back, in case it ends there and has to fade out.
    return ready - fade_;
}

void StreamMixer::decideSwitch() {
    if (!isSwitchPending_) return;
    const auto newest = newestFrame();
    auto start = emitted_;
    for (const auto& part : parts_) {
        if (part->isRemoved()) continue;
        if (part->hasBegun()) {
            start = std::max(start, part->first() + fade_);
        } else if (!isStalled(*part, newest)) {
            return;
        }
    }
    isSwitchPending_ = false;
    wholeTarget_ = 0;
    switchAt_ = start;
}

void StreamMixer::emitUntil(std::int64_t end) {
    while (emitted_ < end) emit(std::min(kChunk, end - emitted_));
}

void StreamMixer::emit(std::int64_t count) {
    const auto samples = std::span(output_).first(static_cast<std::size_t>(count * kChannels));
    std::ranges::fill(samples, 0.0F);
    const float step = 1.0F / static_cast<float>(fade_);
    for (std::int64_t index = 0; index < count; ++index) {
        const auto frame = emitted_ + index;
        if (frame >= switchAt_) wholeGain_ += std::clamp(wholeTarget_ - wholeGain_, -step, step);
        float* output = &samples[static_cast<std::size_t>(index * kChannels)];
        whole_->addTo(output, frame, wholeGain_);
        for (const auto& part : parts_) part->addTo(output, frame, (1 - wholeGain_) * part->edgeGain(frame));
    }
    const AudioBuffer buffer{{static_cast<double>(rate_), kChannels}, samples};
    sink_.onAudio(buffer, timeOf(emitted_));
    emitted_ += count;
}

std::int64_t StreamMixer::frameAt(base::HostTime time) const {
    const auto nanoseconds = time.time_since_epoch().count();
    return nanoseconds / kSecond * rate_ + (nanoseconds % kSecond * rate_ + kSecond / 2) / kSecond;
}

base::HostTime StreamMixer::timeOf(std::int64_t frame) const {
    const auto part = (frame % rate_ * kSecond + rate_ - 1) / rate_;
    return base::HostTime(std::chrono::seconds(frame / rate_) + base::Duration(part));
}

}  // namespace tessivox::audio
