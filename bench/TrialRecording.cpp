#include "TrialRecording.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <variant>

#include "LoopRun.h"
#include "Measure.h"
#include "audio/OriginEstimator.h"

namespace tessivox::bench {
namespace {

constexpr int kMediumBitrate = 128000;
/// So far the sources run ahead of the encoder: well below the ten seconds that the writer holds.
constexpr std::uint64_t kLead = 5 * SpeechTape::kRate;

void syncFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool isDone = fd >= 0 && ::fdatasync(fd) == 0;
    if (fd >= 0) ::close(fd);
    if (!isDone) throw std::runtime_error("cannot sync " + path.string());
}

}  // namespace

TrialRecording::TrialRecording(posix::EventLoop& loop, const std::filesystem::path& folder,
                               audio::AudioEncoderFactory* encoders)
    : loop_(loop),
      files_(loop),
      encoders_(encoders),
      names_(folder / "Incomplete", folder / "trial.m4a"),
      writer_(loop, files_, converters_, encoders_, folder / "Incomplete"),
      problems_(writer_.onProblem.observe([this](const std::string& problem) { problem_ = problem; })),
      beginning_(loop.now()) {
    writer_.start(names_.final(audio::Track::stereo), SpeechTape::kRate, false, kMediumBitrate);
}

void TrialRecording::feedUpTo(const SpeechTape& tape, double second,
                              const std::function<void(double second)>& onMinute) {
    constexpr std::uint64_t minute = 60 * SpeechTape::kRate;
    auto nextMinute = framesFed() / minute * minute + minute;
    const auto end = static_cast<std::uint64_t>(second * SpeechTape::kRate);
    while (feedOne(tape, end)) {
        const auto fed = framesFed();
        if (fed > kLead) awaitEncoder(fed - kLead);
        if (fed < nextMinute || !onMinute) continue;
        onMinute(static_cast<double>(fed) / SpeechTape::kRate);
        nextMinute += minute;
    }
    awaitEncoder(framesFed() / SpeechTape::kRate * SpeechTape::kRate);
}

bool TrialRecording::feedOne(const SpeechTape& tape, std::uint64_t endFrame) {
    const auto microphoneEnd = (microphoneBuffers_ + 1) * SpeechTape::kMicrophoneFrames;
    const auto systemEnd = (systemBuffers_ + 1) * SpeechTape::kSystemFrames;
    if (std::min(microphoneEnd, systemEnd) > endFrame) return false;
    if (microphoneEnd < systemEnd) {
        const auto first = microphoneBuffers_ * SpeechTape::kMicrophoneFrames;
        writer_.appendMicrophone(tape.microphone(microphoneBuffers_++), timeOf(first));
    } else {
        const auto first = systemBuffers_ * SpeechTape::kSystemFrames;
        writer_.appendSystem(tape.system(systemBuffers_++), timeOf(first));
    }
    return true;
}

base::HostTime TrialRecording::timeOf(std::uint64_t frame) const {
    return audio::OriginEstimator::timeOf(beginning_, frame, SpeechTape::kRate);
}

std::uint64_t TrialRecording::framesFed() const {
    return std::min(microphoneBuffers_ * SpeechTape::kMicrophoneFrames, systemBuffers_ * SpeechTape::kSystemFrames);
}

void TrialRecording::awaitEncoder(std::uint64_t frames) const {
    // A chunk leaves only once both sources have filled it, and the clock's rounding may keep a frame back.
    const auto wanted = frames / SpeechTape::kRate * SpeechTape::kRate;
    const Stopwatch watch;
    while (encoders_.framesTaken() < wanted) {
        if (watch.elapsed().wall > 120) throw std::runtime_error("the encoder does not get on");
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

void TrialRecording::settleFiles() const {
    syncFile(names_.temporary(audio::Track::stereo));
    syncFile(names_.hidden(audio::Track::stereo));
}

double TrialRecording::stop() {
    const auto fed =
        std::max(microphoneBuffers_ * SpeechTape::kMicrophoneFrames, systemBuffers_ * SpeechTape::kSystemFrames);
    const Stopwatch watch;
    const auto outcome = finish(loop_, writer_.stop());
    const double wall = watch.elapsed().wall;
    const auto* saved = std::get_if<audio::Saved>(&outcome);
    if (!saved || saved->missingSeconds > 0 || !problem_.empty()) {
        throw std::runtime_error("the recording was not saved: " + problem_);
    }
    if (fed > 0 && encoders_.framesTaken() != fed) throw std::runtime_error("the recording is not whole");
    return wall;
}

}  // namespace tessivox::bench
