#include "support/FakeSound.h"

#include <algorithm>

#include "base/Error.h"

namespace tessivox::testing {

class FakeSound::Stream final : public audio::CaptureStream {
public:
    Stream(FakeSound& server, std::string name, audio::CaptureSink& target)
        : source(std::move(name)), sink(target), server_(server) {
        server_.streams_.insert(this);
    }
    ~Stream() override { server_.streams_.erase(this); }
    const std::string source;
    audio::CaptureSink& sink;

private:
    FakeSound& server_;
};

void FakeSound::plug(const std::string& uid, const std::string& name) {
    now_.inputs.push_back({static_cast<std::uint32_t>(now_.inputs.size() + 1), name, uid});
    changed_.emit();
}

void FakeSound::unplug(const std::string& uid) {
    std::erase_if(now_.inputs, [&](const audio::AudioDevice& device) { return device.uid == uid; });
    if (now_.defaultInputUID == uid) now_.defaultInputUID = now_.inputs.empty() ? "" : now_.inputs.front().uid;
    end(uid);
    changed_.emit();
}

void FakeSound::setDefaultInput(const std::string& uid) {
    now_.defaultInputUID = uid;
    changed_.emit();
}

void FakeSound::setOutput(const std::string& monitorName) {
    now_.systemAudioSourceName = monitorName;
    changed_.emit();
}

void FakeSound::die() {
    beforeDeath_ = std::exchange(now_, {});
    end("");
    changed_.emit();
}

void FakeSound::comeBack() {
    now_ = beforeDeath_;
    changed_.emit();
}

void FakeSound::refuse(const std::string& source, bool refused) {
    refused ? (void)refused_.insert(source) : (void)refused_.erase(source);
}

void FakeSound::play(const std::string& source, const audio::AudioBuffer& buffer, base::HostTime time) {
    for (auto* stream : streams_) {
        if (stream->source == source) stream->sink.onAudio(buffer, time);
    }
}

bool FakeSound::isOpen(const std::string& source) const {
    return std::ranges::count(streams_, source, &Stream::source) == 1;
}

void FakeSound::end(const std::string& source) {
    const auto streams = streams_;
    for (auto* stream : streams) {
        if (source.empty() || stream->source == source) stream->sink.onEnded("The device was unplugged.");
    }
}

base::Task<audio::AudioDeviceSnapshot> FakeSound::snapshot() {
    co_await scheduler_.sleep(std::chrono::milliseconds(1));
    co_return now_;
}

base::Task<std::unique_ptr<audio::CaptureStream>> FakeSound::openMicrophone(std::string uid, audio::CaptureSink& sink) {
    return open(std::move(uid), sink);
}

base::Task<std::unique_ptr<audio::CaptureStream>> FakeSound::openSystemAudio(std::string source,
                                                                             audio::CaptureSink& sink) {
    return open(std::move(source), sink);
}

base::Task<std::unique_ptr<audio::CaptureStream>> FakeSound::open(std::string source, audio::CaptureSink& sink) {
    co_await scheduler_.sleep(delays_[source]);
    if (!now_.serverReachable || refused_.contains(source)) throw base::Error("FakeSound", 1, "Access was refused.");
    co_return std::make_unique<Stream>(*this, source, sink);
}

}  // namespace tessivox::testing
