#include "backend/speech/Voice.h"

#include <algorithm>
#include <cmath>

namespace tessivox::backend {
namespace {

constexpr double kMostFrames = 800;
/// Added to each variance: a few frames alone would make a Gaussian that nothing else fits.
constexpr double kLeastVariance = 0.1;

}  // namespace

void Voice::add(const Values& cepstrum) { count(cepstrum, 1); }

void Voice::remove(const Values& cepstrum) { count(cepstrum, -1); }

void Voice::count(const Values& cepstrum, double times) {
    frames_ += times;
    auto product = products_.begin();
    for (std::size_t row = 0; row < kSize; ++row) {
        const double value = times * static_cast<double>(cepstrum[row]);
        sums_[row] += value;
        for (std::size_t column = 0; column <= row; ++column)
            *product++ += value * static_cast<double>(cepstrum[column]);
    }
}

void Voice::add(const Voice& other) {
    frames_ += other.frames_;
    for (std::size_t i = 0; i < sums_.size(); ++i) sums_[i] += other.sums_[i];
    for (std::size_t i = 0; i < products_.size(); ++i) products_[i] += other.products_[i];
}

double Voice::distance(const Voice& a, const Voice& b, double price) {
    Voice both = a.weighted();
    both.add(b.weighted());
    const double gain =
        both.frames_ * both.logDeterminant() - a.weight() * a.logDeterminant() - b.weight() * b.logDeterminant();
    constexpr double kParameters = kSize + kPairs;
    return gain / 2 - price / 2 * kParameters * std::log(both.frames_);
}

double Voice::weight() const { return std::min(frames_, kMostFrames); }

Voice Voice::weighted() const {
    Voice voice = *this;
    if (frames_ == 0) return voice;
    const double factor = weight() / frames_;
    voice.frames_ = weight();
    for (double& sum : voice.sums_) sum *= factor;
    for (double& product : voice.products_) product *= factor;
    return voice;
}

/// Of the covariance, by Cholesky's decomposition.
double Voice::logDeterminant() const {
    std::array<std::array<double, kSize>, kSize> root{};
    double result = 0;
    const double frames = std::max(frames_, 1.0);
    auto product = products_.begin();
    for (std::size_t row = 0; row < kSize; ++row) {
        for (std::size_t column = 0; column <= row; ++column) {
            double value = *product++ / frames - sums_[row] * sums_[column] / (frames * frames);
            if (row == column) value += kLeastVariance;
            for (std::size_t k = 0; k < column; ++k) value -= root[row][k] * root[column][k];
            root[row][column] = row == column ? std::sqrt(std::max(value, 1e-9)) : value / root[column][column];
        }
        result += 2 * std::log(root[row][row]);
    }
    return result;
}

}  // namespace tessivox::backend
