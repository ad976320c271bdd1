#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>

#include "audio/EncodingTools.h"
#include "audio/TrackEncoder.h"

namespace tessivox::audio {

/// The encoding of a whole temporary file by several threads. The sound is cut between packets; each segment's encoder
/// starts a little early, so that it is settled where its packets begin to count, and the packets are joined in order.
/// The thread that asks encodes as well: helpers that are busy elsewhere hold nothing up. Threads run ahead of the
/// joining by a few segments only, so that memory stays bounded.
class SegmentedEncoding : public std::enable_shared_from_this<SegmentedEncoding> {
public:
    /// A file of that many frames, which does not change meanwhile. All referred to outlives run().
    SegmentedEncoding(const EncodingTools& tools, std::filesystem::path source, const AudioEncoding& encoding,
                      std::uint64_t frames, std::stop_token stop);

    /// Encodes everything into the target, which is then to be finished. Throws the first error of any thread, or that
    /// the encoding was interrupted; no other thread works on it any more then. Call it once.
    void run(TrackEncoder& target, const EncodingProgress& progress);

private:
    /// A stretch of packets, by their numbers.
    struct Segment {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        bool isLast = false;
    };

    EncodingTools tools_;
    std::filesystem::path source_;
    AudioEncoding encoding_;
    std::uint64_t frames_;
    std::stop_token stop_;
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
