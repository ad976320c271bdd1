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

    /// Copies a record in; false if there is no room. Producer.
    bool push(const Header& header, std::span<const float> samples) noexcept {
        const auto written = written_.load(std::memory_order_relaxed);
        if (written - taken_.load(std::memory_order_acquire) >= records_.size()) return false;
        auto start = writeEnd_;
        const auto offset = start % samples_.size();
        if (offset + samples.size() > samples_.size()) start += samples_.size() - offset;
        const auto end = start + samples.size();
        if (end - freed_.load(std::memory_order_acquire) > samples_.size()) return false;
        const auto target = samples_.begin() + static_cast<std::ptrdiff_t>(start % samples_.size());
        std::copy(samples.begin(), samples.end(), target);
        records_[written % records_.size()] = {header, std::span<const float>(target, samples.size()), end};
        writeEnd_ = end;
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
    std::size_t writeEnd_ = 0;
    std::atomic<std::size_t> written_ = 0;
    std::atomic<std::size_t> taken_ = 0;
    std::atomic<std::size_t> freed_ = 0;
};

}  // namespace tessivox::audio
