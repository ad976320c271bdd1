#include "platform/linux/pulse/SystemAudioStream.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "base/Error.h"
#include "base/Log.h"
#include "platform/linux/pulse/HostClock.h"

namespace tessivox::pulse {
namespace {

/// For so long after this process has stopped, its sound may still be on its way through the monitor.
constexpr base::Duration kRunOut = std::chrono::milliseconds(100);
/// The parts' streams stay open until the mixer has surely gone back to the whole.
constexpr base::Duration kCleanUp = std::chrono::seconds(1);

RecordTarget targetOf(const Source& monitor, std::optional<std::uint32_t> sinkInput) {
    RecordTarget target{monitor.name, monitor.description, {}, sinkInput};
    pa_channel_map_init_stereo(&target.channels);
    return target;
}

}  // namespace

struct SystemAudioStream::Part {
    audio::CaptureSink& input;
    RecordStream stream;

    Part(std::shared_ptr<Connection> connection, RecordTarget target, audio::CaptureSink& mixerInput)
        : input(mixerInput), stream(std::move(connection), std::move(target), mixerInput) {}
};

SystemAudioStream::SystemAudioStream(std::shared_ptr<Connection> connection, Source monitor, audio::CaptureSink& sink)
    : connection_(std::move(connection)),
      monitor_(std::move(monitor)),
      sink_(sink),
      mixer_(RecordStream::kRate, sink),
      whole_(connection_, targetOf(monitor_, std::nullopt), mixer_.whole()),
      tasks_(connection_->scheduler()) {}

SystemAudioStream::~SystemAudioStream() = default;

base::Task<void> SystemAudioStream::opened() {
    co_await whole_.opened();
    whole_.onEnded([&sink = sink_](const std::string& reason) { sink.onEnded(reason); });
    connection_->subscribe(PA_SUBSCRIPTION_MASK_SINK_INPUT, EventKinds::all, [this] { notice(); });
    notice();
}

void SystemAudioStream::notice() {
    isReadAgain_ = true;
    if (!std::exchange(isReading_, true)) tasks_.start(read());
}

base::Task<void> SystemAudioStream::read() {
    while (std::exchange(isReadAgain_, false)) {
        try {
            const auto inputs = co_await connection_->sinkInputs();
            adopt(inputs);
        } catch (const base::Error& error) {
            base::log("Cannot tell who plays: " + error.description());
        }
    }
    isReading_ = false;
}

void SystemAudioStream::adopt(const std::vector<SinkInput>& inputs) {
    std::vector<SinkInput> others;
    bool isPlaying = false;
    for (const auto& input : inputs) {
        if (!isHere(input)) continue;
        if (!input.isOurs) others.push_back(input);
        if (input.isOurs && !input.isCorked) isPlaying = true;
    }
    std::erase_if(refused_, [&](std::uint32_t index) {
        return std::ranges::none_of(others, [&](const auto& input) { return input.index == index; });
    });
    forgetMoved(inputs);
    if (isPlaying) {
        useParts(others);
    } else {
        useWhole();
    }
}

void SystemAudioStream::forgetMoved(const std::vector<SinkInput>& inputs) {
    // A stream that is gone altogether ends by itself, after its last sound has been delivered.
    for (const auto& input : inputs) {
        if (!isHere(input)) dropPart(input.index);
    }
}

void SystemAudioStream::useParts(const std::vector<SinkInput>& others) {
    cleanUp_.reset();
    for (const auto& input : others) {
        const bool isRefused = std::ranges::find(refused_, input.index) != refused_.end();
        if (!parts_.contains(input.index) && !isRefused) addPart(input.index);
    }
    const Loop::Lock lock(connection_->loop());
    mixer_.useParts();
}

void SystemAudioStream::useWhole() {
    if (cleanUp_) return;
    {
        const Loop::Lock lock(connection_->loop());
        mixer_.useWhole(hostNow() + kRunOut);
    }
    cleanUp_ = connection_->scheduler().after(kCleanUp, [this] {
        while (!parts_.empty()) dropPart(parts_.begin()->first);
    });
}

audio::CaptureSink& SystemAudioStream::addMixerPart() {
    const Loop::Lock lock(connection_->loop());
    return mixer_.addPart();
}

void SystemAudioStream::addPart(std::uint32_t sinkInput) {
    auto part = std::make_unique<Part>(connection_, targetOf(monitor_, sinkInput), addMixerPart());
    part->stream.onEnded([this, sinkInput](const std::string& reason) {
        base::log("A program's sound is no longer recorded by itself: " + reason);
        dropPart(sinkInput);
        refused_.push_back(sinkInput);
        notice();
    });
    parts_.emplace(sinkInput, std::move(part));
}

void SystemAudioStream::dropPart(std::uint32_t sinkInput) {
    auto part = parts_.extract(sinkInput);
    if (part.empty()) return;
    auto& input = part.mapped()->input;
    part.mapped().reset();
    const Loop::Lock lock(connection_->loop());
    mixer_.removePart(input);
}

}  // namespace tessivox::pulse
