#include "platform/linux/pulse/PulseInputUse.h"

#include <pulse/util.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/Error.h"
#include "base/Log.h"
#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {
namespace {

using detection::DeviceID;
using detection::InputProcess;

constexpr base::Duration kRetryInterval = std::chrono::seconds(1);

/// A sandbox counts its processes anew, so our number may be that of another program there.
bool isThisProcess(const Declaration& owner) {
    char binary[256] = "";
    pa_get_binary_name(binary, sizeof binary);
    return owner.pid == ::getpid() && (owner.binary.empty() || owner.binary == binary);
}

}  // namespace

PulseInputUse::PulseInputUse(SoundServerLink& link, IdentifyProcess identify, base::Duration hold)
    : link_(link), identify_(std::move(identify)), holdSpan_(hold), tasks_(link.scheduler()) {
    news_ = link_.onNews([this](ServerNews news) { take(news); });
    setOld(ServerNews::link);
    look();
}

std::optional<bool> PulseInputUse::isRunningSomewhere(DeviceID device) const {
    if (device != told_.device) return std::nullopt;
    return !told_.processes.empty();
}

detection::InputUseMonitor::Watch PulseInputUse::watch(DeviceID device, std::function<void()> handler) {
    if (device != told_.device) return {};
    return {true, processesChanged_.observe(std::move(handler))};
}

void PulseInputUse::take(ServerNews news) {
    setOld(news);
    if (news == ServerNews::link) {
        owners_.clear();  // The next server counts from the beginning.
        lose();
    }
    look();
}

void PulseInputUse::setOld(ServerNews news) {
    if (news != ServerNews::link) return void(old_.insert(news));
    old_ = {ServerNews::defaults, ServerNews::sources, ServerNews::streams};
}

void PulseInputUse::look() {
    isReadAgain_ = true;
    if (!std::exchange(isReading_, true)) tasks_.start(keepReading());
}

base::Task<void> PulseInputUse::keepReading() {
    while (std::exchange(isReadAgain_, false)) {
        try {
            co_await readOnce();
        } catch (const base::Error& error) {
            base::log("Cannot tell who uses the microphone: " + error.description());
            lose();
            // A link that is down tells when it is up; a server that is stuck tells nothing.
            if (error.code() == static_cast<int>(PulseFailure::noAnswer)) {
                retry_ = link_.scheduler().after(kRetryInterval, [this] { look(); });
            }
        }
        tell();
    }
    isReading_ = false;
}

base::Task<void> PulseInputUse::readOnce() {
    const auto connection = co_await link_.connection();
    co_await readLists(connection);
    if (isSourceMissing(streams_, sources_)) sources_ = co_await connection->sources();
    const auto streams = microphoneStreams(streams_, sources_);
    co_await readOwners(connection, streams);
    seen_ = {presentDevice(), presentProcesses(streams)};
    isLost_ = false;
}

base::Task<void> PulseInputUse::readLists(std::shared_ptr<Connection> connection) {
    // Whatever changes from here on is news again.
    const auto old = std::exchange(old_, std::set<ServerNews>());
    try {
        if (old.contains(ServerNews::defaults)) defaults_ = co_await connection->defaults();
        if (old.contains(ServerNews::sources)) sources_ = co_await connection->sources();
        if (old.contains(ServerNews::streams)) streams_ = co_await connection->sourceOutputs();
    } catch (...) {
        old_.insert(old.begin(), old.end());
        throw;
    }
}

/// Asks for the owners of streams that are new, and forgets those of streams that ended.
base::Task<void> PulseInputUse::readOwners(std::shared_ptr<Connection> connection, std::vector<SourceOutput> streams) {
    std::erase_if(owners_, [&](const auto& owner) {
        return std::ranges::find(streams, owner.first, &SourceOutput::index) == streams.end();
    });
    const bool isAllKnown =
        std::ranges::all_of(streams, [this](const SourceOutput& stream) { return owners_.contains(stream.index); });
    if (isAllKnown) co_return;
    const auto clients = co_await connection->clients();
    for (const auto& stream : streams) {
        if (owners_.contains(stream.index)) continue;
        const auto client = std::ranges::find(clients, stream.client, &Client::index);
        const auto ofClient = client == clients.end() ? Declaration() : client->declaration;
        const auto owner = joined(stream.declaration, ofClient);
        owners_[stream.index] = isThisProcess(owner) ? Owner() : identify_(owner);
    }
}

std::vector<InputProcess> PulseInputUse::presentProcesses(const std::vector<SourceOutput>& streams) const {
    std::vector<InputProcess> result;
    for (const auto& stream : streams) {
        const auto& owner = owners_.at(stream.index);
        if (owner && std::ranges::find(result, *owner) == result.end()) result.push_back(*owner);
    }
    return result;
}

DeviceID PulseInputUse::presentDevice() const {
    const auto source = std::ranges::find(sources_, defaults_.source, &Source::name);
    if (source == sources_.end() || source->isMonitor) return kNoInput;
    return source->index + 1;  // Servers count from 0, which means none here.
}

/// Without an answer what was told holds for a while.
void PulseInputUse::lose() {
    seen_.processes.clear();
    if (std::exchange(isLost_, true)) return;
    if (awaited_.empty()) hold_ = link_.scheduler().after(holdSpan_, [this] { endHold(); });
    awaited_ = told_.processes;
}

void PulseInputUse::endHold() {
    awaited_.clear();
    if (isLost_) seen_ = {};
    tell();
}

void PulseInputUse::tell() {
    std::erase_if(awaited_, [this](const InputProcess& before) {
        return std::ranges::find(seen_.processes, before.bundleID, &InputProcess::bundleID) != seen_.processes.end();
    });
    Use now = seen_;
    now.processes.insert(now.processes.end(), awaited_.begin(), awaited_.end());
    const bool hasOtherDevice = now.device != told_.device;
    const bool hasOtherProcesses = now.processes != told_.processes;
    told_ = std::move(now);
    if (hasOtherDevice) deviceChanged_.emit();
    if (hasOtherProcesses) processesChanged_.emit();
}

}  // namespace tessivox::pulse
