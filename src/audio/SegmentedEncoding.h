#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "audio/EncodingTools.h"

namespace tessivox::audio {

/// Hands on the frames from `begin` to before `end`, interleaved, in pieces. Called by several threads at the same
/// time. Throws base::Error if they are not all there.
using SampleSource = std::function<void(std::uint64_t begin, std::uint64_t end,
                                        const std::function<void(std::span<const float>)>& takePiece)>;

/// The encoding of a long sound by several threads. The sound is cut between packets; each segment's encoder
/// starts a little early, so that it is settled where its packets begin to count, and the packets are joined in order.
/// The thread that asks encodes as well: helpers that are busy elsewhere hold nothing up. Threads run ahead of the
/// joining by a few segments only, so that memory stays bounded.
class SegmentedEncoding : public std::enable_shared_from_this<SegmentedEncoding> {
public:
    /// A sound of that many frames. All referred to outlives run().
    SegmentedEncoding(const EncodingTools& tools, SampleSource source, const AudioEncoding& encoding,
                      std::uint64_t frames);

    /// Hands on all packets in order, on the calling thread. Throws the first error of any thread, also of the source,
    /// which thus interrupts the encoding; no other thread works on it any more then. Call it once.
    void run(const std::function<void(const AudioPackets&)>& takePackets, const EncodingProgress& progress);

private:
    /// A stretch of packets, by their numbers.
    struct Segment {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        bool isLast = false;
    };

    EncodingTools tools_;
    SampleSource source_;
    AudioEncoding encoding_;
    std::uint64_t frames_;
    std::size_t count_;  ///< segments
    std::size_t limit_;  ///< segments that may be begun beyond those joined
    std::atomic<std::uint64_t> framesDone_ = 0;
    std::atomic<bool> isOver_ = false;  ///< failed or ended; changed with the lock held

    std::mutex mutex_;  ///< guards what follows
    std::condition_variable changed_;
    std::size_t begun_ = 0;
    std::size_t joined_ = 0;
    int working_ = 0;  ///< helpers
    std::map<std::size_t, AudioPackets> finished_;
    std::exception_ptr error_;

    void help();
    void end();
    bool mayBegin() const { return begun_ < count_ && begun_ < joined_ + limit_; }
    std::optional<std::size_t> beginOne();
    std::optional<AudioPackets> takeNext();
    void awaitChange();
    void encode(std::size_t index, const EncodingProgress& progress);
    AudioPackets packetsOf(const Segment& segment, const EncodingProgress& progress);
    double shareDone(std::uint64_t more);
    Segment segment(std::size_t index) const;
};

}  // namespace tessivox::audio
