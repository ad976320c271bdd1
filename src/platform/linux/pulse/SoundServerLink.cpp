#include "platform/linux/pulse/SoundServerLink.h"

#include <utility>

#include "base/Log.h"
#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {
namespace {

// A server that restarts is back within tenths of a second; one that is not there is no reason to stay busy.
constexpr base::Duration kQuickRetry = std::chrono::milliseconds(100);
constexpr int kQuickRetries = 10;
constexpr base::Duration kRetryInterval = std::chrono::seconds(1);
constexpr base::Duration kCoalescing = std::chrono::milliseconds(50);

}  // namespace

SoundServerLink::SoundServerLink(base::Scheduler& scheduler, std::string address)
    : scheduler_(scheduler), address_(std::move(address)), tasks_(scheduler) {
    tasks_.start(keepConnected());
}

SoundServerLink::~SoundServerLink() = default;

base::Task<void> SoundServerLink::keepConnected() {
    int retries = 0;
    while (true) {
        const base::Completion<bool> lost;
        try {
            auto connection = co_await connect();
            hold(std::move(connection), lost);
            co_await lost;
        } catch (...) {
            failure_ = std::current_exception();
        }
        const bool wasConnected = std::exchange(connection_, nullptr) != nullptr;
        settle();
        if (wasConnected) {
            noteChange();
            news_.emit(ServerNews::link);
        }
        retries = wasConnected ? 1 : retries + 1;
        co_await scheduler_.sleep(retries <= kQuickRetries ? kQuickRetry : kRetryInterval);
    }
}

base::Task<std::shared_ptr<Connection>> SoundServerLink::connect() {
    const auto connection = std::make_shared<Connection>(scheduler_, address_);
    co_await connection->ready();
    co_return connection;
}

void SoundServerLink::hold(std::shared_ptr<Connection> connection, base::Completion<bool> lost) {
    base::log("Connected to the sound server");
    connection_ = std::move(connection);
    failure_ = nullptr;
    connection_->onLost([lost] { lost.fail(std::make_exception_ptr(makeError(PulseFailure::connectionLost))); });
    // Their volumes and states change all day long. An output comes and goes with its monitor, which is a source.
    connection_->subscribe(PA_SUBSCRIPTION_MASK_SOURCE, EventKinds::comingAndGoing, [this] { noteChange(); });
    connection_->subscribe(PA_SUBSCRIPTION_MASK_SERVER, EventKinds::all, [this] { noteChange(); });
    const auto tell = [this](pa_subscription_mask_t facility, EventKinds kinds, ServerNews news) {
        connection_->subscribe(
            facility, kinds, [this, news] { news_.emit(news); }, kGathering);
    };
    tell(PA_SUBSCRIPTION_MASK_SERVER, EventKinds::all, ServerNews::defaults);
    tell(PA_SUBSCRIPTION_MASK_SOURCE, EventKinds::comingAndGoing, ServerNews::sources);
    tell(PA_SUBSCRIPTION_MASK_SOURCE_OUTPUT, EventKinds::all, ServerNews::streams);
    settle();
    noteChange();
    news_.emit(ServerNews::link);
}

void SoundServerLink::settle() {
    for (const auto& waiting : std::exchange(waiting_, {})) waiting.succeed(true);
}

void SoundServerLink::noteChange() {
    if (coalescing_) return;
    coalescing_ = scheduler_.after(kCoalescing, [this] { changed_.emit(); });
}

base::Task<std::shared_ptr<Connection>> SoundServerLink::connection() {
    if (!connection_ && !failure_) {
        const base::Completion<bool> settled;
        waiting_.push_back(settled);
        co_await settled;
    }
    if (!connection_) std::rethrow_exception(failure_);
    co_return connection_;
}

}  // namespace tessivox::pulse
