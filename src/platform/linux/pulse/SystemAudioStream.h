#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "audio/StreamMixer.h"
#include "audio/ports/CaptureBackend.h"
#include "base/TaskScope.h"
#include "platform/linux/pulse/Connection.h"
#include "platform/linux/pulse/RecordStream.h"

namespace tessivox::pulse {

/// What the computer plays through one output, without what this process plays: the output's monitor, and while this
/// process plays through that output, the streams of all other programs instead, one by one. Main thread.
class SystemAudioStream final : public audio::CaptureStream {
public:
    SystemAudioStream(std::shared_ptr<Connection> connection, Source monitor, audio::CaptureSink& sink);
    ~SystemAudioStream() override;  // where Part is complete

    /// Ends when the monitor runs; throws base::Error if it cannot. To be awaited once, before the sink hears of an
    /// end.
    base::Task<void> opened();

private:
    /// One program's stream while it is recorded by itself.
    struct Part;

    std::shared_ptr<Connection> connection_;
    Source monitor_;
    audio::CaptureSink& sink_;
    audio::StreamMixer mixer_;  // the connection's thread, or its lock
    RecordStream whole_;
    std::map<std::uint32_t, std::unique_ptr<Part>> parts_;  ///< by index of the sink input
    std::vector<std::uint32_t> refused_;                    ///< sink inputs that cannot be recorded by themselves
    bool isReading_ = false;
    bool isReadAgain_ = false;
    base::Timer cleanUp_;
    base::TaskScope tasks_;

    void notice();
    base::Task<void> read();
    void adopt(const std::vector<SinkInput>& inputs);
    void useParts(const std::vector<SinkInput>& others);
    void useWhole();
    audio::CaptureSink& addMixerPart();
    void addPart(std::uint32_t sinkInput);
    void dropPart(std::uint32_t sinkInput);
    void forgetMoved(const std::vector<SinkInput>& inputs);
    bool isHere(const SinkInput& input) const { return input.sink == monitor_.monitoredSinkIndex; }
};

}  // namespace tessivox::pulse
