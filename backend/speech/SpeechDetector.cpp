#include "backend/speech/SpeechDetector.h"

#include <algorithm>
#include <optional>

#include "backend/speech/BandLevels.h"
#include "backend/speech/NoiseFloor.h"
#include "backend/speech/PowerSpectrum.h"

namespace tessivox::backend {
namespace {

constexpr double kBegins = 4.5;             ///< dB above the floors, where speech begins
constexpr double kEnds = 3.0;               ///< dB above the floors, where it ends
constexpr double kCeiling = 20;             ///< dB; one band may not speak for all
constexpr std::size_t kSure = 8;            ///< frames above kBegins that make speech rather than a click
constexpr std::size_t kHangOver = 30;       ///< frames
constexpr std::size_t kPaddingBefore = 12;  ///< frames
constexpr std::size_t kPaddingAfter = 16;   ///< frames
constexpr std::size_t kLongest = 25 * Frames::kPerSecond;
constexpr std::size_t kShortestPart = 5 * Frames::kPerSecond;

struct Run {
    std::size_t begin = 0;  ///< frames
    std::size_t end = 0;
};

/// How far the bands are above their floors, on average, in dB.
double excess(const BandLevels::Frame& levels, const BandLevels::Frame& floors) {
    constexpr int kMost = static_cast<int>(kCeiling * BandLevels::kStepsPerDecibel);
    int sum = 0;
    for (std::size_t band = 0; band < levels.size(); ++band) sum += std::clamp(levels[band] - floors[band], 0, kMost);
    return sum / (BandLevels::kStepsPerDecibel * static_cast<double>(levels.size()));
}

/// Joins frames of speech to runs.
class RunCollector {
public:
    void add(std::size_t frame, double decibels) {
        if (run_ && frame >= run_->end + kHangOver) finish();
        if (decibels < kEnds) return;
        if (!run_) run_ = Run{frame, frame};
        run_->end = frame + 1;
        if (decibels >= kBegins) ++sure_;
    }

    std::vector<Run> finished() {
        finish();
        return std::move(runs_);
    }

private:
    std::vector<Run> runs_;
    std::optional<Run> run_;
    std::size_t sure_ = 0;

    void finish() {
        if (run_ && sure_ >= kSure) runs_.push_back(*run_);
        run_.reset();
        sure_ = 0;
    }
};

Run padded(Run run, std::size_t frames) {
    return {run.begin - std::min(run.begin, kPaddingBefore), std::min(run.end + kPaddingAfter, frames)};
}

/// The latest of several, since long segments are recognised better.
std::size_t quietestFrame(const BandLevels& levels, std::size_t begin, std::size_t end) {
    std::size_t quietest = begin;
    for (std::size_t frame = begin; frame < end; ++frame)
        if (levels.loudness(frame) <= levels.loudness(quietest)) quietest = frame;
    return quietest;
}

/// No part is longer than kLongest, nor shorter than kShortestPart.
void appendParts(std::vector<SpeechSegment>& segments, Run run, const BandLevels& levels, std::size_t samples) {
    while (run.end - run.begin > kLongest) {
        const std::size_t latest = std::min(run.begin + kLongest, run.end - kShortestPart);
        const std::size_t middle = quietestFrame(levels, run.begin + kShortestPart, latest);
        segments.push_back({run.begin * Frames::kStep, middle * Frames::kStep});
        run.begin = middle;
    }
    const std::size_t end = run.end * Frames::kStep + Frames::kLength - Frames::kStep;
    segments.push_back({run.begin * Frames::kStep, std::min(end, samples)});
}

}  // namespace

std::vector<SpeechSegment> detectSpeech(std::span<const std::int16_t> samples) {
    const BandLevels levels(samples);
    const NoiseFloor floor(levels);
    RunCollector collector;
    for (std::size_t frame = 0; frame < levels.frames(); ++frame)
        collector.add(frame, excess(levels[frame], floor.at(frame)));
    std::vector<SpeechSegment> segments;
    for (const Run run : collector.finished())
        appendParts(segments, padded(run, levels.frames()), levels, samples.size());
    return segments;
}

}  // namespace tessivox::backend
