#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessivox::audio {

/// A bounded queue of audio records from one producer thread to one consumer thread, without locks or allocation. A
/// record is a header and samples that lie in one piece.
template <typename Header>
class AudioRing {
public:
    /// Room for `samples` floats in at most `records` records.
    AudioRing(std::size_t samples, std::size_t records) : samples_(samples), records_(records) {}

    /// Whether a record of so many samples could be pushed now. Producer.
    bool hasRoom(std::size_t count) const noexcept {
        const auto used = written_.load(std::memory_order_relaxed) - taken_.load(std::memory_order_acquire);
        const auto free = std::max(freed_.load(std::memory_order_acquire), begin_);
        return used < records_.size() && startFor(count) + count - free <= samples_.size();
    }

    /// Copies a record in; false if there is no room. Producer.
    bool push(const Header& header, std::span<const float> samples) noexcept {
        rewindIfEmpty();
        if (!hasRoom(samples.size())) return false;
        const auto start = startFor(samples.size());
        const auto target = samples_.begin() + static_cast<std::ptrdiff_t>(start % samples_.size());
        std::copy(samples.begin(), samples.end(), target);
        writeEnd_ = start + samples.size();
        const auto written = written_.load(std::memory_order_relaxed);
        records_[written % records_.size()] = {header, std::span<const float>(target, samples.size()), writeEnd_};
        written_.store(written + 1, std::memory_order_release);
        return true;
    }

    struct Record {
        Header header;
        std::span<const float> samples;
        std::size_t end = 0;  ///< position behind the samples, counted from the ring's beginning
    };

    /// The oldest record, or null. It stays valid until pop(). Consumer.
    const Record* front() const noexcept {
        const auto taken = taken_.load(std::memory_order_relaxed);
        if (taken == written_.load(std::memory_order_acquire)) return nullptr;
        return &records_[taken % records_.size()];
    }

    /// Gives the oldest record's room back. Consumer.
    void pop() noexcept {
        const auto taken = taken_.load(std::memory_order_relaxed);
        freed_.store(records_[taken % records_.size()].end, std::memory_order_release);
        taken_.store(taken + 1, std::memory_order_release);
    }

private:
    std::vector<float> samples_;
    std::vector<Record> records_;
    std::size_t begin_ = 0;  ///< where the records after the latest rewinding begin; producer
    std::size_t writeEnd_ = 0;
    std::atomic<std::size_t> written_ = 0;
    std::atomic<std::size_t> taken_ = 0;
    std::atomic<std::size_t> freed_ = 0;

    /// A ring whose consumer keeps up uses the same few pages again and again, which stay in the processor's cache.
    void rewindIfEmpty() noexcept {
        if (taken_.load(std::memory_order_acquire) != written_.load(std::memory_order_relaxed)) return;
        if (const auto offset = writeEnd_ % samples_.size(); offset > 0) writeEnd_ += samples_.size() - offset;
        begin_ = writeEnd_;
    }

    /// Position of the next record's first sample: a record that would cross the ring's end begins at its start.
    std::size_t startFor(std::size_t count) const noexcept {
        const auto offset = writeEnd_ % samples_.size();
        return offset + count > samples_.size() ? writeEnd_ + samples_.size() - offset : writeEnd_;
    }
};

}  // namespace tessivox::audio
