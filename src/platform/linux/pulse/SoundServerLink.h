#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Completion.h"
#include "base/Scheduler.h"
#include "base/Signal.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "platform/linux/pulse/Connection.h"

namespace tessivox::pulse {

/// What happened at the server.
enum class ServerNews {
    link,      ///< it went away or came back
    defaults,  ///< another device may be the default
    sources,   ///< one came or went
    streams,   ///< a stream from a source began, ended or has changed
};

/// The process's standing link to the sound server: connects, hears of changes, and while there is no server tries
/// again, ten times in the first second, then each second. Main thread.
class SoundServerLink {
public:
    /// How long news is gathered: what begins or ends comes as a swarm of events, of which one reading tells all.
    static constexpr base::Duration kGathering = std::chrono::milliseconds(25);

    /// Begins to connect. An empty address means the user's server. The scheduler outlives the link.
    explicit SoundServerLink(base::Scheduler& scheduler, std::string address = {});
    ~SoundServerLink();

    /// The connection, once it is known whether there is one; throws base::Error if there is none at present.
    base::Task<std::shared_ptr<Connection>> connection();
    /// Called after devices came or went, a default changed, or the server went away or came back; changes within 50 ms
    /// count as one.
    base::Subscription onChange(std::function<void()> handler) { return changed_.observe(std::move(handler)); }

    /// Called kGathering after the first of such events, and at once for the link.
    base::Subscription onNews(std::function<void(ServerNews)> handler) { return news_.observe(std::move(handler)); }

    base::Scheduler& scheduler() { return scheduler_; }
    const std::string& address() const { return address_; }

private:
    base::Scheduler& scheduler_;
    std::string address_;
    base::Signal<> changed_;
    base::Signal<ServerNews> news_;
    std::shared_ptr<Connection> connection_;  ///< null while there is none
    std::exception_ptr failure_;              ///< why there is none; null while the outcome is open
    std::vector<base::Completion<bool>> waiting_;
    base::Timer coalescing_;
    base::TaskScope tasks_;

    base::Task<void> keepConnected();
    base::Task<std::shared_ptr<Connection>> connect();
    void hold(std::shared_ptr<Connection> connection, base::Completion<bool> lost);
    void settle();
    void noteChange();
};

}  // namespace tessivox::pulse
