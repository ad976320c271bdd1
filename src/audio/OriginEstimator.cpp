#include "audio/OriginEstimator.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessivox::audio {

void OriginEstimator::add(base::HostTime observation) {
    if (std::exchange(isDoubted_, false) && std::chrono::abs(observation - word()) > kConfirmed) restart();
    const bool isStray = count_ > 0 && std::chrono::abs(observation - word()) > kStray;
    remember(observation);
    strays_ = isStray ? strays_ + 1 : 0;
    if (isStray) {
        const auto replies = repliesAfterMove();
        if (replies == 0) return;
        forgetAllBut(replies);
    }
    const auto now = word();
    const bool isSteady = origin_ && std::chrono::abs(now - *origin_) <= kTolerance;
    // While few replies are in, it still moves: follow it without tolerance.
    if (!isSteady || count_ < kEnough) origin_ = now;
}

void OriginEstimator::restart() {
    count_ = next_ = 0;
    strays_ = 0;
    isDoubted_ = false;
    origin_.reset();
}

base::HostTime OriginEstimator::timeOf(base::HostTime origin, std::uint64_t frame, double sampleRate) {
    const auto whole = static_cast<std::uint64_t>(sampleRate);
    if (static_cast<double>(whole) == sampleRate && whole > 0) {
        // Whole seconds and the rest apart, so that no precision is lost however long the stream runs.
        const auto rest = frame % whole;
        const auto nanos = (rest * 1'000'000'000 + whole - 1) / whole;
        return origin + std::chrono::seconds(frame / whole) + base::Duration(static_cast<std::int64_t>(nanos));
    }
    return origin + base::Duration(static_cast<std::int64_t>(std::ceil(static_cast<double>(frame) * 1e9 / sampleRate)));
}

void OriginEstimator::remember(base::HostTime observation) {
    history_[next_] = observation;
    next_ = (next_ + 1) % kHistory;
    count_ = std::min(count_ + 1, kHistory);
}

base::HostTime OriginEstimator::latest(std::size_t age) const {
    return history_[(next_ + kHistory - 1 - age) % kHistory];
}

/// How many of the latest ones tell of another origin than that of the estimate; zero unless it has moved.
std::size_t OriginEstimator::repliesAfterMove() const {
    const auto isFar = [this](std::size_t age) { return std::chrono::abs(latest(age) - *origin_) > kFar; };
    if (strays_ >= 2 && isFar(0) && isFar(1)) return 2;
    if (strays_ < kAgreeing) return 0;
    auto earliest = latest(0), last = latest(0);
    for (std::size_t age = 1; age < kAgreeing; ++age) {
        earliest = std::min(earliest, latest(age));
        last = std::max(last, latest(age));
    }
    return last - earliest <= kAgreement ? kAgreeing : 0;
}

void OriginEstimator::forgetAllBut(std::size_t replies) {
    std::array<base::HostTime, kAgreeing> kept;
    for (std::size_t age = 0; age < replies; ++age) kept[age] = latest(age);
    restart();
    for (std::size_t age = 0; age < replies; ++age) remember(kept[age]);
}

base::HostTime OriginEstimator::word() const {
    auto sorted = history_;
    std::sort(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(count_));
    return std::min(sorted[count_ / 2], sorted[count_ / kPerOutlier] + kNoise);
}

}  // namespace tessivox::audio
