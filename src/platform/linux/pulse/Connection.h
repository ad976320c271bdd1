#pragma once

#include <pulse/channelmap.h>
#include <pulse/context.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Completion.h"
#include "base/Scheduler.h"
#include "platform/linux/pulse/Loop.h"
#include "platform/linux/pulse/Operation.h"

namespace tessivox::pulse {

/// A source of the server: a microphone, or the monitor of an output.
struct Source {
    std::uint32_t index = 0;
    std::string name;
    std::string description;
    std::uint32_t monitoredSinkIndex = 0;
    std::string monitoredSink;  ///< name of the output it is the monitor of; empty for a real input
    bool isMonitor = false;
    pa_channel_map channels{};
};

/// A program's stream to an output.
struct SinkInput {
    std::uint32_t index = 0;
    std::uint32_t sink = 0;
    bool isCorked = false;
    bool isOurs = false;  ///< played by this process
};

/// What a program tells of itself in the properties of its stream or connection. Any of it may be missing, or a lie.
struct Declaration {
    std::int32_t pid = 0;          ///< as the program's own sandbox counts; 0 if it is not told
    std::int32_t securityPID = 0;  ///< as the kernel told PipeWire, for its native clients only; else 0
    std::string binary;
    std::string applicationID;
    std::string applicationName;
    std::string portalID;  ///< application that PipeWire's portal let in
};

/// A program's stream from a source, whether it takes sound or not.
struct SourceOutput {
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    std::uint32_t index = 0;
    std::uint32_t client = kNone;  ///< kNone: the server's own
    std::uint32_t source = kNone;  ///< kNone: not connected to one yet
    bool isCorked = false;
    bool takesPeaks = false;    ///< for a level meter: a few values a second, no sound
    bool takesMonitor = false;  ///< what an output plays
    Declaration declaration;
};

struct Client {
    std::uint32_t index = 0;
    Declaration declaration;
};

/// Which events of a kind of object are of interest: all, or only that one came or went.
enum class EventKinds { all, comingAndGoing };

/// The server's defaults, by name, as it states them: they may name what is not there.
struct Defaults {
    std::string sink;
    std::string source;
};

/// One connection to the sound server, on a thread of its own. It never comes back once lost: make another. Main
/// thread, but for loop() and context(), which are for callers that hold the loop's lock.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    /// Begins to connect. An empty address means the user's server. Throws base::Error without resources.
    Connection(base::Scheduler& scheduler, const std::string& address);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// Ends when the server has accepted; throws base::Error if it does not. To be awaited once.
    base::Task<void> ready();
    /// Replaces the handler for the connection's loss, after it was ready. Called at most once.
    void onLost(std::function<void()> handler) { state_->lost = std::move(handler); }
    /// Calls the handler after events of these facilities, several at once as one: so long after the first that a swarm
    /// of them wakes nobody more than twice. Each call adds a handler. After ready().
    void subscribe(pa_subscription_mask_t facilities, EventKinds kinds, std::function<void()> handler,
                   base::Duration gathering = {});

    // Each throws base::Error if the server does not answer.
    base::Task<Defaults> defaults();
    base::Task<std::vector<Source>> sources();
    base::Task<std::optional<Source>> source(std::string name);
    base::Task<std::vector<SinkInput>> sinkInputs();
    base::Task<std::vector<SourceOutput>> sourceOutputs();
    base::Task<std::vector<Client>> clients();

    base::Scheduler& scheduler() { return scheduler_; }
    Loop& loop() { return loop_; }
    pa_context* context() { return context_; }

private:
    /// What posted callbacks reach; it goes with the connection.
    struct State {
        base::Completion<bool> accepted;
        std::function<void()> lost;
        bool wasReady = false;
    };

    base::Scheduler& scheduler_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
    struct Events {
        unsigned facilities;
        EventKinds kinds;
        std::atomic<bool> isNoted = false;
        std::unique_ptr<base::WakeSource> source{};
        base::Timer gathering{};  ///< main thread

        Events(unsigned wantedFacilities, EventKinds wantedKinds) : facilities(wantedFacilities), kinds(wantedKinds) {}
    };

    std::deque<Events> events_;  ///< under the loop's lock
    Loop loop_;
    pa_context* context_ = nullptr;

    static void onState(pa_context* context, void* self);
    static void onEvent(pa_context*, pa_subscription_event_type_t, std::uint32_t, void* self);
};

}  // namespace tessivox::pulse
