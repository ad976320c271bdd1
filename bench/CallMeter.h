#pragma once

#include <cstdint>
#include <numeric>
#include <vector>

#include "Measure.h"

namespace tessivox::bench {

/// What calls cost and allocate on the thread that makes them, once they have warmed up.
class CallMeter {
public:
    explicit CallMeter(std::uint64_t warmUp) : warmUp_(warmUp) {}

    template <typename Call>
    void measure(Call call) {
        const auto allocated = bench::allocations();
        Stopwatch watch;
        watch.restart();  // the first look at the clock after a sleep is a slow one
        call();
        const double cpu = watch.elapsed().cpu;
        const Stopwatch empty;
        const double ownCost = empty.elapsed().cpu;
        const auto made = bench::allocations() - allocated;
        if (++calls_ <= warmUp_) return;
        costs_.push_back(cpu - ownCost);
        allocations_ += made;
    }

    /// CPU of a call on average, without what looking at the clock costs.
    double microseconds() const {
        return 1e6 * std::accumulate(costs_.begin(), costs_.end(), 0.0) / static_cast<double>(costs_.size());
    }
    double medianMicroseconds() const { return 1e6 * median(costs_); }
    std::uint64_t allocations() const { return allocations_; }
    std::uint64_t calls() const { return costs_.size(); }

private:
    std::uint64_t warmUp_;
    std::uint64_t calls_ = 0;
    std::vector<double> costs_;  ///< seconds
    std::uint64_t allocations_ = 0;
};

}  // namespace tessivox::bench
