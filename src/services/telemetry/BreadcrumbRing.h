#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/Units.h"
#include "services/telemetry/Breadcrumb.h"

namespace tessivox::telemetry {

/// The last breadcrumbs, each as one line of text, in fixed memory. Any thread adds without waiting for another; a
/// signal handler may read at any moment and sees only whole lines.
class BreadcrumbRing {
public:
    static constexpr std::size_t kCapacity = 64;
    static constexpr std::size_t kLineSize = 240;  ///< bytes; longer lines are cut between characters

    struct Record {
        base::WallTime time;
        std::size_t size = 0;
        std::array<char, kLineSize> bytes{};
        std::string_view line() const noexcept { return {bytes.data(), size}; }
    };

    /// The line reads "info recording: Recording started source=manual". If a writer is overtaken by a whole round of
    /// the ring, one of the two lines is lost.
    void add(base::WallTime time, const Breadcrumb& breadcrumb);

    /// Calls with each whole record, oldest first. Neither allocates nor locks.
    template <typename Visit>
    void forEach(Visit visit) const noexcept {
        const auto end = next_.load(std::memory_order_acquire);
        Record record;
        for (auto ticket = end > kCapacity ? end - kCapacity : 0; ticket < end; ++ticket) {
            if (read(ticket, record)) visit(record);
        }
    }

private:
    static constexpr std::size_t kWords = kLineSize / sizeof(std::uint64_t);
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    /// A sequence lock. Words are stored with release and loaded with acquire, so that who sees a new word also sees
    /// that the slot was taken for writing.
    struct Slot {
        std::atomic<std::uint64_t> sequence = 0;  ///< 2 * ticket + 1 while written, 2 * ticket + 2 when whole
        std::atomic<std::uint64_t> time = 0;
        std::atomic<std::uint64_t> size = 0;
        std::array<std::atomic<std::uint64_t>, kWords> words{};
    };

    std::atomic<std::uint64_t> next_ = 0;
    std::array<Slot, kCapacity> slots_;

    bool read(std::uint64_t ticket, Record& record) const noexcept;
};

}  // namespace tessivox::telemetry
