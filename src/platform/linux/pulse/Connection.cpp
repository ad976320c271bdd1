#include "platform/linux/pulse/Connection.h"

#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/subscribe.h>

#include <unistd.h>

#include <charconv>
#include <exception>
#include <set>

#include "base/ShortenedText.h"
#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {
namespace {

constexpr std::size_t kLongestProperty = 256;

std::string text(const char* value) { return value ? value : ""; }

void addSource(pa_context*, const pa_source_info* info, int end, void* list) {
    if (end || !info) return;
    const bool isMonitor = info->monitor_of_sink != PA_INVALID_INDEX;
    static_cast<std::vector<Source>*>(list)->push_back({info->index, text(info->name), text(info->description),
                                                        info->monitor_of_sink, text(info->monitor_of_sink_name),
                                                        isMonitor, info->channel_map});
}

void takeDefaults(pa_context*, const pa_server_info* info, void* defaults) {
    if (!info) return;
    *static_cast<Defaults*>(defaults) = {text(info->default_sink_name), text(info->default_source_name)};
}

bool isThisProcess(const pa_proplist* properties) {
    const char* process = pa_proplist_gets(properties, PA_PROP_APPLICATION_PROCESS_ID);
    return process && std::to_string(getpid()) == process;
}

/// A property as other programs wrote it, within bounds.
std::string property(const pa_proplist* properties, const char* key) {
    const char* value = pa_proplist_gets(properties, key);
    return std::string(base::shortened(value ? value : "", kLongestProperty));
}

std::int32_t processProperty(const pa_proplist* properties, const char* key) {
    const auto digits = property(properties, key);
    std::int32_t pid = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    return error == std::errc() && end == digits.data() + digits.size() && pid > 0 ? pid : 0;
}

bool isTrue(const pa_proplist* properties, const char* key) { return property(properties, key) == "true"; }

Declaration declaration(const pa_proplist* properties) {
    Declaration result;
    result.pid = processProperty(properties, PA_PROP_APPLICATION_PROCESS_ID);
    // PipeWire's PulseAudio service speaks for its clients, and the kernel names only the service.
    if (property(properties, "client.api") != "pipewire-pulse") {
        result.securityPID = processProperty(properties, "pipewire.sec.pid");
    }
    result.binary = property(properties, PA_PROP_APPLICATION_PROCESS_BINARY);
    result.applicationID = property(properties, PA_PROP_APPLICATION_ID);
    result.applicationName = property(properties, PA_PROP_APPLICATION_NAME);
    result.portalID = property(properties, "pipewire.access.portal.app_id");
    return result;
}

void addSourceOutput(pa_context*, const pa_source_output_info* info, int end, void* list) {
    if (end || !info) return;
    static_assert(SourceOutput::kNone == PA_INVALID_INDEX);
    const auto* properties = info->proplist;
    const bool takesPeaks = text(info->resample_method) == "peaks" || isTrue(properties, "resample.peaks") ||
                            isTrue(properties, "stream.monitor");
    static_cast<std::vector<SourceOutput>*>(list)->push_back(
        {info->index, info->client, info->source, info->corked != 0, takesPeaks,
         isTrue(properties, "stream.capture.sink"), declaration(properties)});
}

void addClient(pa_context*, const pa_client_info* info, int end, void* list) {
    if (end || !info) return;
    static_cast<std::vector<Client>*>(list)->push_back({info->index, declaration(info->proplist)});
}

/// The streams to outputs, and the clients of this process: not every stream names its process itself.
struct Playback {
    struct Stream {
        SinkInput input;
        std::uint32_t client;
    };
    std::vector<Stream> streams;
    std::set<std::uint32_t> ownClients;
};

void addSinkInput(pa_context*, const pa_sink_input_info* info, int end, void* playback) {
    if (end || !info) return;
    const bool isOurs = isThisProcess(info->proplist);
    static_cast<Playback*>(playback)->streams.push_back(
        {{info->index, info->sink, info->corked != 0, isOurs}, info->client});
}

void addOwnClient(pa_context*, const pa_client_info* info, int end, void* playback) {
    if (!end && info && isThisProcess(info->proplist)) static_cast<Playback*>(playback)->ownClients.insert(info->index);
}

}  // namespace

Connection::Connection(base::Scheduler& scheduler, const std::string& address) : scheduler_(scheduler) {
    const Loop::Lock lock(loop_);
    context_ = pa_context_new(loop_.api(), "Tessivox");
    if (!context_) throw makeError(PulseFailure::noResources);
    pa_context_set_state_callback(context_, &Connection::onState, this);
    // A refusal at once changes the state as well, so the result tells nothing new.
    pa_context_connect(context_, address.empty() ? nullptr : address.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr);
}

Connection::~Connection() {
    const Loop::Lock lock(loop_);
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_set_subscribe_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
}

base::Task<void> Connection::ready() { return awaitAnswer(scheduler_, state_->accepted); }

void Connection::onState(pa_context* context, void* self) {
    auto& me = *static_cast<Connection*>(self);
    const auto state = pa_context_get_state(context);
    const std::weak_ptr weak(me.state_);
    if (state == PA_CONTEXT_READY) {
        me.scheduler_.post([weak] {
            const auto mine = weak.lock();
            if (!mine) return;
            mine->wasReady = true;
            mine->accepted.succeed(true);
        });
    } else if (!PA_CONTEXT_IS_GOOD(state)) {
        me.scheduler_.post([weak, code = pa_context_errno(context)] {
            const auto mine = weak.lock();
            if (!mine) return;
            mine->accepted.fail(std::make_exception_ptr(makeConnectionError(code)));
            if (const auto lost = mine->lost; lost && mine->wasReady) lost();
        });
    }
}

void Connection::subscribe(pa_subscription_mask_t facilities, EventKinds kinds, std::function<void()> handler,
                           base::Duration gathering) {
    const Loop::Lock lock(loop_);
    auto& events = events_.emplace_back(static_cast<unsigned>(facilities), kinds);
    auto tell = [&events, handler = std::move(handler)] {
        events.isNoted = false;  // what comes from here on is told anew
        handler();
    };
    events.source = scheduler_.source([this, &events, tell = std::move(tell), gathering] {
        if (gathering > base::Duration::zero())
            events.gathering = scheduler_.after(gathering, tell);
        else
            tell();
    });
    unsigned all = 0;
    for (const auto& each : events_) all |= each.facilities;
    pa_context_set_subscribe_callback(context_, &Connection::onEvent, this);
    const auto mask = static_cast<pa_subscription_mask_t>(all);
    if (auto* operation = pa_context_subscribe(context_, mask, nullptr, nullptr)) pa_operation_unref(operation);
}

void Connection::onEvent(pa_context*, pa_subscription_event_type_t event, std::uint32_t, void* self) {
    const unsigned facility = 1U << (event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK);
    const bool isChange = (event & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_CHANGE;
    for (auto& events : static_cast<Connection*>(self)->events_) {
        const bool isWanted = (events.facilities & facility) != 0 && (events.kinds == EventKinds::all || !isChange);
        if (isWanted && !events.isNoted.exchange(true)) events.source->signal();
    }
}

base::Task<Defaults> Connection::defaults() {
    const auto keepAlive = shared_from_this();
    Defaults result;
    Operation operation(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        operation.start(pa_context_get_server_info(context_, &takeDefaults, &result));
    }
    co_await operation.finished();
    co_return result;
}

base::Task<std::vector<Source>> Connection::sources() {
    const auto keepAlive = shared_from_this();
    std::vector<Source> result;
    Operation operation(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        operation.start(pa_context_get_source_info_list(context_, &addSource, &result));
    }
    co_await operation.finished();
    co_return result;
}

base::Task<std::optional<Source>> Connection::source(std::string name) {
    const auto keepAlive = shared_from_this();
    std::vector<Source> found;
    Operation operation(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        operation.start(pa_context_get_source_info_by_name(context_, name.c_str(), &addSource, &found));
    }
    co_await operation.finished();
    // A server may answer a name it does not know with another device.
    std::optional<Source> result;
    if (!found.empty() && found.front().name == name) result = found.front();
    co_return result;
}

base::Task<std::vector<SinkInput>> Connection::sinkInputs() {
    const auto keepAlive = shared_from_this();
    Playback playback;
    Operation clients(scheduler_, loop_);
    Operation streams(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        clients.start(pa_context_get_client_info_list(context_, &addOwnClient, &playback));
        streams.start(pa_context_get_sink_input_info_list(context_, &addSinkInput, &playback));
    }
    co_await clients.finished();
    co_await streams.finished();
    std::vector<SinkInput> result;
    for (auto& [input, client] : playback.streams) {
        input.isOurs = input.isOurs || playback.ownClients.contains(client);
        result.push_back(input);
    }
    co_return result;
}

base::Task<std::vector<SourceOutput>> Connection::sourceOutputs() {
    const auto keepAlive = shared_from_this();
    std::vector<SourceOutput> result;
    Operation operation(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        operation.start(pa_context_get_source_output_info_list(context_, &addSourceOutput, &result));
    }
    co_await operation.finished();
    co_return result;
}

base::Task<std::vector<Client>> Connection::clients() {
    const auto keepAlive = shared_from_this();
    std::vector<Client> result;
    Operation operation(scheduler_, loop_);
    {
        const Loop::Lock lock(loop_);
        operation.start(pa_context_get_client_info_list(context_, &addClient, &result));
    }
    co_await operation.finished();
    co_return result;
}

}  // namespace tessivox::pulse
