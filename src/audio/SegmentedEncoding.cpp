#include "audio/SegmentedEncoding.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "audio/TemporaryEncoding.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr std::uint64_t kPacket = PacketEncoder::kPacketFrames;
/// With so many, the sound at a seam is as good as within one run; with four, one can measure it; with none, hear it.
constexpr std::uint64_t kLeadIn = 16;

/// Leaves the packets from `first` to before `end`.
void keepOnly(AudioPackets& packets, std::size_t first, std::size_t end) {
    auto& list = packets.packets;
    if (list.size() < end) {
        throw base::Error("SegmentedEncoding", 1, base::localized("The encoder gave back less than it was given."));
    }
    const auto bytesBefore = [&](std::size_t index) {
        std::size_t bytes = 0;
        for (const auto& packet : std::span(list).first(index)) bytes += packet.size;
        return static_cast<std::ptrdiff_t>(bytes);
    };
    const auto firstByte = bytesBefore(first), endByte = bytesBefore(end);
    packets.bytes.erase(packets.bytes.begin() + endByte, packets.bytes.end());
    packets.bytes.erase(packets.bytes.begin(), packets.bytes.begin() + firstByte);
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(end), list.end());
    list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(first));
}

}  // namespace

SegmentedEncoding::SegmentedEncoding(const EncodingTools& tools, SampleSource source, const AudioEncoding& encoding,
                                     std::uint64_t frames)
    : tools_(tools),
      source_(std::move(source)),
      encoding_(encoding),
      frames_(frames),
      count_((frames + tools.segmentFrames - 1) / tools.segmentFrames),
      limit_(2 * (tools.helpers.size() + 1)) {}

void SegmentedEncoding::run(const std::function<void(const AudioPackets&)>& takePackets,
                            const EncodingProgress& progress) {
    struct Ending {
        SegmentedEncoding& self;
        ~Ending() { self.end(); }
    } const ending{*this};
    for (auto* helper : tools_.helpers) helper->post([self = shared_from_this()] { self->help(); });
    for (std::size_t joined = 0; joined < count_;) {
        if (const auto packets = takeNext()) {
            takePackets(*packets);
            ++joined;
        } else if (const auto index = beginOne()) {
            encode(*index, progress);
        } else {
            awaitChange();
        }
    }
    progress(1);
}

void SegmentedEncoding::help() {
    std::unique_lock lock(mutex_);
    // Whoever comes too late finds that what this refers to may be gone.
    if (isOver_) return;
    ++working_;
    while (true) {
        changed_.wait(lock, [this] { return isOver_ || begun_ == count_ || mayBegin(); });
        if (isOver_ || begun_ == count_) break;
        const auto index = begun_++;
        lock.unlock();
        encode(index, [](double) {});
        lock.lock();
    }
    --working_;
    changed_.notify_all();
}

void SegmentedEncoding::end() {
    std::unique_lock lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return working_ == 0; });
}

std::optional<std::size_t> SegmentedEncoding::beginOne() {
    const std::lock_guard lock(mutex_);
    if (!mayBegin()) return std::nullopt;
    return begun_++;
}

std::optional<AudioPackets> SegmentedEncoding::takeNext() {
    const std::lock_guard lock(mutex_);
    if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
    auto next = finished_.extract(joined_);
    if (!next) return std::nullopt;
    ++joined_;
    changed_.notify_all();
    return std::move(next.mapped());
}

void SegmentedEncoding::awaitChange() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return error_ || mayBegin() || finished_.contains(joined_); });
}

void SegmentedEncoding::encode(std::size_t index, const EncodingProgress& progress) {
    std::exception_ptr error;
    AudioPackets packets;
    try {
        packets = packetsOf(segment(index), progress);
    } catch (...) {
        error = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    if (!error) {
        finished_.emplace(index, std::move(packets));
    } else if (!error_) {
        // Moved from hand to hand, so that the asking thread, which throws it, is also the last to let it go.
        error_ = std::move(error);
        isOver_ = true;
    }
    changed_.notify_all();
}

AudioPackets SegmentedEncoding::packetsOf(const Segment& segment, const EncodingProgress& progress) {
    const auto encoder = tools_.encoders.makeEncoder(encoding_);
    const auto leadIn = std::min(kLeadIn, segment.begin);
    const auto begin = (segment.begin - leadIn) * kPacket;
    // A packet comes out once the next one's frames are in.
    const auto end = segment.isLast ? frames_ : std::min(frames_, (segment.end + 1) * kPacket);
    AudioPackets packets;
    packets.bytes.reserve((end - begin) / static_cast<std::uint64_t>(encoding_.sampleRate) *
                          static_cast<std::uint64_t>(encoding_.bitrate) / 8);
    source_(begin, end, [&](std::span<const float> samples) {
        if (isOver_) throwInterrupted();
        encoder->write(samples, packets);
        progress(shareDone(samples.size() / static_cast<std::size_t>(encoding_.channels)));
    });
    if (segment.isLast) encoder->finish(packets);
    keepOnly(packets, leadIn, segment.isLast ? packets.packets.size() : leadIn + segment.end - segment.begin);
    return packets;
}

double SegmentedEncoding::shareDone(std::uint64_t more) {
    const auto total = frames_ + (count_ - 1) * (kLeadIn + 1) * kPacket;
    return std::min(1.0, static_cast<double>(framesDone_ += more) / static_cast<double>(total));
}

SegmentedEncoding::Segment SegmentedEncoding::segment(std::size_t index) const {
    const auto packets = (frames_ + kPacket - 1) / kPacket;
    return {packets * index / count_, packets * (index + 1) / count_, index + 1 == count_};
}

}  // namespace tessivox::audio
