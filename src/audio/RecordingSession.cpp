#include "audio/RecordingSession.h"

#include <algorithm>

#include "audio/OriginEstimator.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr std::size_t kIncomingSeconds = 10;
constexpr std::size_t kRecords = 4096;

std::size_t secondOf(double sampleRate) { return static_cast<std::size_t>(sampleRate); }

}  // namespace

RecordingSession::Inlet::Inlet(AudioConverterFactory& converters, double sampleRate)
    : incoming(2 * kIncomingSeconds * secondOf(sampleRate), kRecords),
      mixer(converters, sampleRate),
      placed(secondOf(sampleRate), kRecords) {}

RecordingSession::RecordingSession(base::Files& files, AudioConverterFactory& converters, const RecordingFiles& names,
                                   const EncodingSettings& settings, bool separateTracks, ProblemHandler onProblem)
    : names_(names),
      settings_(settings),
      separateTracks_(separateTracks),
      onProblem_(std::move(onProblem)),
      inlets_{Inlet{converters, settings.sampleRate}, Inlet{converters, settings.sampleRate}},
      clock_(settings.sampleRate),
      temporary_(files, names, settings.sampleRate, separateTracks),
      timeline_(secondOf(settings.sampleRate),
                [this](std::int64_t first, std::span<const float> interleaved) { writeChunk(first, interleaved); }) {}

void RecordingSession::append(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept {
    auto& inlet = inlets_[static_cast<std::size_t>(source)];
    const auto channels = static_cast<std::size_t>(buffer.format.channels);
    // A piece always fits an empty ring, wherever in it the last one ended.
    const auto longest = std::max<std::size_t>(1, secondOf(buffer.format.sampleRate) / 4);
    for (std::size_t first = 0; first < buffer.frames(); first += longest) {
        const auto count = std::min(longest, buffer.frames() - first);
        const auto at = OriginEstimator::timeOf(time, first, buffer.format.sampleRate);
        if (!inlet.incoming.push({buffer.format, at}, buffer.samples.subspan(first * channels, count * channels)))
            inlet.refusedFrames.fetch_add(count, std::memory_order_relaxed);
    }
}

void RecordingSession::pause(base::HostTime now) {
    const std::lock_guard guard(lock_);
    clock_.pause(now);
}

void RecordingSession::resume(base::HostTime now) {
    const std::lock_guard guard(lock_);
    clock_.resume(now);
}

void RecordingSession::resetConverters() {
    for (auto& inlet : inlets_) inlet.mixer.reset();
}

bool RecordingSession::convert() {
    bool isReady = false;
    while (Inlet* inlet = earliest()) {
        if (!convertNext(*inlet)) {
            isBlocked_ = true;
            break;
        }
        isReady = true;
    }
    reportOverflow();
    return isReady || isBlocked_;
}

RecordingSession::Inlet* RecordingSession::earliest() {
    // In order of time, so that the earlier source defines the start of the recording.
    const auto* microphone = inlets_[0].incoming.front();
    const auto* system = inlets_[1].incoming.front();
    if (microphone && (!system || microphone->header.time <= system->header.time)) return &inlets_[0];
    return system ? &inlets_[1] : nullptr;
}

bool RecordingSession::convertNext(Inlet& inlet) {
    const auto* record = inlet.incoming.front();
    const AudioBuffer buffer{record->header.format, record->samples};
    const auto longest = static_cast<double>(buffer.frames()) * settings_.sampleRate / buffer.format.sampleRate;
    if (!inlet.placed.hasRoom(static_cast<std::size_t>(longest) + 64)) return false;

    const auto placement = [&] {
        const std::lock_guard guard(lock_);
        return clock_.place(record->header.time, buffer.frames(), buffer.format.sampleRate);
    }();
    if (placement) {
        logFormat(inlet, buffer);
        const auto channels = static_cast<std::size_t>(buffer.format.channels);
        const auto kept = buffer.samples.subspan(placement->skip * channels, placement->count * channels);
        const auto mono = inlet.mixer.mix({buffer.format, kept});
        if (!mono.empty() && inlet.placed.push(placement->position, mono)) ++inlet.buffers;
    }
    inlet.incoming.pop();
    return true;
}

void RecordingSession::logFormat(Inlet& inlet, const AudioBuffer& buffer) {
    if (std::exchange(inlet.didLogFormat, true) || !base::isLogging()) return;
    const auto source = &inlet == &inlets_[0] ? "Mic" : "Sys";
    base::log(base::filled("{0} input: {1}Hz {2}ch {3} frames",
                           {source, base::fixedNumber(buffer.format.sampleRate, 1),
                            std::to_string(buffer.format.channels), std::to_string(buffer.frames())}));
}

void RecordingSession::reportOverflow() {
    const auto refused = inlets_[0].refusedFrames + inlets_[1].refusedFrames;
    if (refused == 0 || std::exchange(toldOverflow_, true)) return;
    onProblem_(base::localized("The disk or the computer is too slow: some audio had to be left out and is silent."));
}

bool RecordingSession::write() {
    const auto before = timeline_.flushedFrames();
    for (std::size_t source = 0; source < inlets_.size(); ++source) {
        auto& placed = inlets_[source].placed;
        while (const auto* record = placed.front()) {
            timeline_.place(static_cast<Source>(source), record->samples, record->header);
            placed.pop();
        }
    }
    return timeline_.flushedFrames() > before;
}

std::int64_t RecordingSession::close() {
    const auto before = timeline_.flushedFrames();
    timeline_.flushTail();
    const auto total = timeline_.flushedFrames();
    base::log(base::filled("Flushed remaining {0} frames, total: {1}",
                           {std::to_string(total - before), std::to_string(total)}));
    return total;
}

void RecordingSession::writeChunk(std::int64_t firstFrame, std::span<const float> interleaved) {
    const auto problem = temporary_.write(firstFrame, interleaved);
    if (problem) reportWriteError(*problem);
    if (encoder_) encoder_->add(firstFrame, interleaved, !problem);
}

void RecordingSession::sync() {
    try {
        temporary_.sync();
    } catch (const base::FileError& error) {
        reportWriteError(error.description());
    }
}

void RecordingSession::reportWriteError(const std::string& error) {
    base::log("Write error: " + error);
    if (!toldWriteError_.exchange(true)) onProblem_(error);
}

FinishedRecording RecordingSession::finished() const {
    return {names_, settings_, separateTracks_, static_cast<std::uint64_t>(timeline_.flushedFrames()),
            temporary_.lostFrames()};
}

}  // namespace tessivox::audio
