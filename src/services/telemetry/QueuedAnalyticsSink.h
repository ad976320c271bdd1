#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/Scheduler.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/Timer.h"
#include "base/Uuid.h"
#include "base/ports/HttpClient.h"
#include "services/telemetry/SignalQueue.h"
#include "services/telemetry/ports/AnalyticsSink.h"

namespace tessivox::telemetry {

/// Sends signals to a server that the user configured, in batches, a moment after they came. They wait on the disk and
/// leave it once the server has said that it has them (a status of 200 to 299). Main thread.
///
/// A batch is a POST of {"app_id": text, "signals": [{"id", "session", "time", "name", "parameters": {...}}]}.
class QueuedAnalyticsSink final : public AnalyticsSink {
public:
    static constexpr std::size_t kMostInBatch = 100;
    static constexpr base::Duration kBatchDelay = std::chrono::seconds(10);
    static constexpr base::Duration kFirstRetry = std::chrono::minutes(1);
    static constexpr base::Duration kLastRetry = std::chrono::hours(1);

    struct Surroundings {
        base::Scheduler& scheduler;
        base::HttpClient& client;
        base::RandomBytes random;
        /// The user's switch. Signals that still wait when it is off are dropped.
        std::function<bool()> enabled;
    };
    QueuedAnalyticsSink(Surroundings surroundings, SignalQueue queue, std::string url);

    /// Also sends what an earlier run left.
    void initialise(std::string_view appID) override;
    void send(std::string_view name, const Parameters& parameters) override;
    void sendActivation(std::string_view featureName) override;

private:
    const Surroundings surroundings_;
    SignalQueue queue_;
    const std::string url_;
    const std::string session_;
    std::string appID_;
    base::Duration retry_ = kFirstRetry;
    bool isSending_ = false;
    base::Timer timer_;
    base::TaskScope scope_;

    void sendAfter(base::Duration delay);
    base::Task<void> sendBatches();
    base::Task<bool> deliver(SignalQueue::Batch batch);
    base::HttpRequest requestOf(const SignalQueue::Batch& batch) const;
};

}  // namespace tessivox::telemetry
