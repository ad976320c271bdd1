#include "platform/linux/pulse/PulseCaptureBackend.h"

#include <optional>
#include <utility>

#include "platform/linux/pulse/Connection.h"
#include "platform/linux/pulse/PulseError.h"
#include "platform/linux/pulse/RecordStream.h"
#include "platform/linux/pulse/SystemAudioStream.h"

namespace tessivox::pulse {
namespace {

/// A capture that is one stream of the server.
class SingleCapture final : public audio::CaptureStream {
public:
    SingleCapture(std::shared_ptr<Connection> connection, RecordTarget target, audio::CaptureSink& sink)
        : sink_(sink), stream_(std::move(connection), std::move(target), sink) {}

    base::Task<void> opened() {
        co_await stream_.opened();
        stream_.onEnded([&sink = sink_](const std::string& reason) { sink.onEnded(reason); });
    }

private:
    audio::CaptureSink& sink_;
    RecordStream stream_;
};

}  // namespace

base::Task<std::shared_ptr<Connection>> PulseCaptureBackend::connect() {
    const auto connection = std::make_shared<Connection>(scheduler_, address_);
    co_await connection->ready();
    co_return connection;
}

base::Task<std::unique_ptr<audio::CaptureStream>> PulseCaptureBackend::openMicrophone(std::string uid,
                                                                                      audio::CaptureSink& sink) {
    const auto connection = co_await connect();
    const auto source = co_await connection->source(uid);
    if (!source) throw makeError(PulseFailure::microphoneMissing, uid);
    if (source->isMonitor) throw makeError(PulseFailure::notAMicrophone, source->description);
    const RecordTarget target{source->name, source->description, source->channels, std::nullopt};
    auto capture = std::make_unique<SingleCapture>(connection, target, sink);
    co_await capture->opened();
    co_return capture;
}

base::Task<std::unique_ptr<audio::CaptureStream>> PulseCaptureBackend::openSystemAudio(std::string sourceName,
                                                                                       audio::CaptureSink& sink) {
    const auto connection = co_await connect();
    const auto source = co_await connection->source(sourceName);
    if (!source || !source->isMonitor) throw makeError(PulseFailure::outputMissing, sourceName);
    auto capture = std::make_unique<SystemAudioStream>(connection, *source, sink);
    co_await capture->opened();
    co_return capture;
}

}  // namespace tessivox::pulse
