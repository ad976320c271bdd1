#pragma once

#include <array>
#include <cstddef>

namespace tessivox::backend {

/// What is known of a voice: a Gaussian with a full covariance over its frames' cepstra.
class Voice {
public:
    static constexpr std::size_t kSize = 13;
    using Values = std::array<float, kSize>;

    void add(const Values& cepstrum);
    void remove(const Values& cepstrum);
    void add(const Voice& other);
    double frames() const { return frames_; }

    /// How much better two voices explain the frames of both than one does, less the price of a second one: negative if
    /// they are one voice. The Bayesian information criterion of Chen and Gopalakrishnan (1998; the price is their
    /// lambda), but with at most 800 frames of each counted: the penalty grows only with the logarithm of their number,
    /// so that in long recordings every shade of a voice would otherwise become a speaker.
    static double distance(const Voice& a, const Voice& b, double price);

private:
    static constexpr std::size_t kPairs = kSize * (kSize + 1) / 2;
    double frames_ = 0;
    std::array<double, kSize> sums_{};
    std::array<double, kPairs> products_{};  ///< lower triangle, row by row

    void count(const Values& cepstrum, double times);
    double weight() const;
    /// The sums as if there were only weight() frames.
    Voice weighted() const;
    double logDeterminant() const;
};

}  // namespace tessivox::backend
