#include "platform/linux/pulse/PulseCaptureBackend.h"

#include <optional>
#include <utility>

#include "platform/linux/pulse/Connection.h"
#include "platform/linux/pulse/PulseError.h"
#include "platform/linux/pulse/RecordStream.h"

namespace tessivox::pulse {
namespace {

/// A capture that is one stream of the server.
class SingleCapture final : public audio::CaptureStream {
public:
    SingleCapture(std::shared_ptr<Connection> connection, RecordTarget target, audio::CaptureSink& sink)
        : stream_(std::move(connection), std::move(target), sink) {
        stream_.onEnded([&sink](const std::string& reason) { sink.onEnded(reason); });
    }
    base::Task<void> opened() { return stream_.opened(); }

private:
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
    RecordTarget target{source->name, source->description, {}, std::nullopt};
    pa_channel_map_init_stereo(&target.channels);
    auto capture = std::make_unique<SingleCapture>(connection, target, sink);
    co_await capture->opened();
    co_return capture;
}

}  // namespace tessivox::pulse
