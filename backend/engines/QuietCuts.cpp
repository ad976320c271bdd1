#include "backend/engines/QuietCuts.h"

#include <algorithm>
#include <cstddef>

#include "backend/Engine.h"

namespace tessivox::backend {
namespace {

constexpr std::size_t kStep = Sound::kSampleRate / 50;  // 20 ms
constexpr std::size_t kSteps = 15;                      // of quiet

double energy(std::span<const std::int16_t> samples) {
    double sum = 0;
    for (const double sample : samples) sum += sample * sample;
    return sum;
}

/// Where in the samples the quietest stretch has its middle; the later one of equals. Their end if they are too few.
std::size_t quietestPlace(std::span<const std::int16_t> samples) {
    std::vector<double> steps;
    for (std::size_t at = 0; at + kStep <= samples.size(); at += kStep)
        steps.push_back(energy(samples.subspan(at, kStep)));
    std::size_t place = samples.size();
    double least = 0;
    for (std::size_t first = 0; first + kSteps <= steps.size(); ++first) {
        double sum = 0;
        for (std::size_t step = first; step < first + kSteps; ++step) sum += steps[step];
        if (first > 0 && sum > least) continue;
        least = sum;
        place = first * kStep + kSteps * kStep / 2;
    }
    return place;
}

}  // namespace

std::vector<std::span<const std::int16_t>> cutAtQuietPlaces(std::span<const std::int16_t> samples, std::size_t most,
                                                            std::size_t back) {
    std::vector<std::span<const std::int16_t>> pieces;
    while (samples.size() > most) {
        const auto size = most - back + quietestPlace(samples.subspan(most - back, back));
        pieces.push_back(samples.first(size));
        samples = samples.subspan(size);
    }
    if (!samples.empty()) pieces.push_back(samples);
    return pieces;
}

}  // namespace tessivox::backend
