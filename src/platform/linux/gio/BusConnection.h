#pragma once

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/Observable.h"
#include "base/Signal.h"

namespace tessivox::gio {

struct VariantRelease {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantRelease>;

/// A method of somebody on a bus. The texts outlive the call.
struct BusMethod {
    std::string destination;
    const char* path;
    const char* interface;
    const char* name;
    const char* replyType;       ///< a tuple; an answer of another type counts as a failure
    bool startsService = false;  ///< whether the bus may start the destination
};

/// What came back.
struct BusReply {
    enum class Failure {
        none,
        noOwner,  ///< nobody has the name
        ended,    ///< who had it went away, or the bus did
        other     ///< `message` says what
    };
    Failure failure = Failure::none;
    std::string message;
    Variant value;                             ///< of the type that was asked for, or null
    std::shared_ptr<GUnixFDList> descriptors;  ///< null if none came
};

/// Takes back the calls that were made under it: their answers are dropped.
class BusScope {
public:
    BusScope() : cancellable_(g_cancellable_new()) {}
    BusScope(const BusScope&) = delete;
    BusScope& operator=(const BusScope&) = delete;
    ~BusScope() {
        g_cancellable_cancel(cancellable_);
        g_object_unref(cancellable_);
    }
    GCancellable* cancellable() const { return cancellable_; }

private:
    GCancellable* cancellable_;
};

/// A connection to one bus. Everything happens in the bus thread, which does not wait for anybody.
class BusConnection {
public:
    enum class State { unused, connecting, open, absent, lost };

    explicit BusConnection(std::string address) : address_(std::move(address)) {}
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;
    ~BusConnection() { end(); }

    base::Observable<State> state{State::unused};

    /// Connects if it is not connected or about to be.
    void connect();
    /// Of an open connection.
    GDBusConnection* get() const { return connection_.get(); }

    /// Calls a method over an open connection. `parameters` may be floating. The answer comes in a later turn, once,
    /// without a time limit, unless the scope ends before.
    void call(const BusMethod& method, GVariant* parameters, const BusScope& scope,
              std::function<void(BusReply)> onReply);
    /// Calls without waiting for an answer.
    void tell(const BusMethod& method, GVariant* parameters);

    /// The handler learns the sender's unique name and the parameters, which are of the type.
    using SignalHandler = std::function<void(const std::string& sender, GVariant* parameters)>;
    base::Subscription onSignal(const std::string& sender, const char* interface, const char* member, const char* type,
                                SignalHandler handler);
    /// Called soon, and on each change, with the unique name of who has the name, or with nothing.
    base::Subscription watchName(const std::string& name, std::function<void(const std::string& owner)> handler);

    /// Leaves the bus for good.
    void end();
    /// Calls that were made and are not over, those that were taken back included.
    int pendingCalls() const { return *pendingCalls_; }

private:
    const std::string address_;
    std::shared_ptr<GDBusConnection> connection_;
    gulong closedHandler_ = 0;
    std::shared_ptr<int> pendingCalls_ = std::make_shared<int>(0);
    std::optional<BusScope> scope_{std::in_place};

    void take(GDBusConnection* connection);
    void drop();
    friend struct PendingConnect;
};

}  // namespace tessivox::gio
