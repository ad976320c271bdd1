#include "PacedSound.h"

#include <functional>
#include <stop_token>
#include <thread>
#include <vector>

#include "audio/OriginEstimator.h"
#include "audio/TimedCapture.h"

namespace tessivox::bench {
namespace {

void sleepUntil(base::HostTime time) {
    std::this_thread::sleep_until(std::chrono::steady_clock::time_point(time.time_since_epoch()));
}

}  // namespace

class PacedSound::Stream final : public audio::CaptureStream {
public:
    using Reader = std::function<audio::AudioBuffer(std::uint64_t number)>;
    Stream(base::Scheduler& scheduler, Reader reader, audio::CaptureSink& sink, CallMeter* meter)
        : scheduler_(scheduler), reader_(std::move(reader)), meter_(meter), timed_(reader_(0).format, sink) {
        thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }

private:
    base::Scheduler& scheduler_;
    Reader reader_;
    CallMeter* meter_;
    audio::TimedCapture timed_;
    std::vector<float> received_;
    std::jthread thread_;

    void run(const std::stop_token& stop) {
        const auto origin = scheduler_.now();
        std::uint64_t frames = 0;
        for (std::uint64_t number = 0; !stop.stop_requested(); ++number) {
            const auto buffer = reader_(number);
            frames += buffer.frames();
            sleepUntil(audio::OriginEstimator::timeOf(origin, frames, buffer.format.sampleRate));
            // As a server's client does: the samples have just been read from a socket.
            received_.assign(buffer.samples.begin(), buffer.samples.end());
            const auto call = [&] { deliver({buffer.format, received_}, origin); };
            meter_ ? meter_->measure(call) : call();
        }
    }

    void deliver(const audio::AudioBuffer& buffer, base::HostTime origin) {
        const auto arrival = scheduler_.now();
        timed_.addAudio(buffer.samples, arrival);
        timed_.releaseOverdue(arrival);
        if (timed_.wantsTimingReply(arrival)) timed_.addTimingReply(scheduler_.now(), origin);
    }
};

base::Task<audio::AudioDeviceSnapshot> PacedSound::snapshot() {
    co_return audio::AudioDeviceSnapshot{true, {{1, "Microphone", "mic"}}, "mic", "speakers.monitor"};
}

base::Task<std::unique_ptr<audio::CaptureStream>> PacedSound::openMicrophone(std::string, audio::CaptureSink& sink) {
    const Stream::Reader reader = [this](std::uint64_t number) { return tape_.microphone(number); };
    co_return std::make_unique<Stream>(scheduler_, reader, sink, measuresCalls_ ? &microphoneCalls_ : nullptr);
}

base::Task<std::unique_ptr<audio::CaptureStream>> PacedSound::openSystemAudio(std::string, audio::CaptureSink& sink) {
    const Stream::Reader reader = [this](std::uint64_t number) { return tape_.system(number); };
    co_return std::make_unique<Stream>(scheduler_, reader, sink, measuresCalls_ ? &systemCalls_ : nullptr);
}

}  // namespace tessivox::bench
