#pragma once

#include <pulse/stream.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/TimedCapture.h"
#include "base/Completion.h"
#include "base/Error.h"
#include "platform/linux/pulse/Connection.h"

namespace tessivox::pulse {

/// What a stream records: a source, or one program's part of what goes to the source's output.
struct RecordTarget {
    std::string source;
    std::string description;  ///< of the device, for the user
    pa_channel_map channels{};
    std::optional<std::uint32_t> sinkInput;
};

/// A recording stream on a connection, in 32-bit float at 48000 Hz, timed by polled replies of the server. It stays
/// with its device: the server may not move it to another one. Made and destroyed on the main thread; when the
/// destructor returns, nothing is called any more.
class RecordStream {
public:
    static constexpr std::uint32_t kRate = 48000;

    /// Begins to open. The sink hears audio on the connection's thread, its onEnded is not used.
    RecordStream(std::shared_ptr<Connection> connection, RecordTarget target, audio::CaptureSink& sink);
    RecordStream(const RecordStream&) = delete;
    RecordStream& operator=(const RecordStream&) = delete;
    ~RecordStream();

    /// Ends when the stream runs on the wanted device; throws base::Error if it cannot. To be awaited once.
    base::Task<void> opened();
    /// Sets what to call (main thread, at most once) when the stream fails or ends by itself, with the reason. The
    /// handler may destroy the stream.
    void onEnded(std::function<void(const std::string&)> handler) { state_->ended = std::move(handler); }

private:
    /// What posted callbacks reach; it goes with the stream.
    struct State {
        base::Completion<bool> opened;
        std::function<void(const std::string&)> ended;
    };

    std::shared_ptr<Connection> connection_;
    RecordTarget target_;
    std::shared_ptr<State> state_ = std::make_shared<State>();

    // Connection's thread, or its lock:
    audio::TimedCapture timed_;
    std::size_t frameBytes_;
    pa_stream* stream_ = nullptr;
    pa_time_event* poll_ = nullptr;
    pa_operation* timing_ = nullptr;
    base::HostTime timingRequested_{};

    void connect();
    void run();
    void fail(int pulseCode);
    base::Error errorFor(int pulseCode) const;
    void read();
    void askForTiming();
    void takeTiming();

    static void onState(pa_stream* stream, void* self);
    static void onSuspended(pa_stream* stream, void* self);
    static void onReadable(pa_stream* stream, std::size_t bytes, void* self);
    static void onPoll(pa_mainloop_api* api, pa_time_event* event, const timeval* time, void* self);
    static void onTiming(pa_stream* stream, int success, void* self);
};

}  // namespace tessivox::pulse
