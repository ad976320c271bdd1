#include "services/telemetry/QueuedAnalyticsSink.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "base/IsoTime.h"
#include "base/Log.h"

namespace tessivox::telemetry {
namespace {

using Json = nlohmann::ordered_json;

std::string dumped(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace

QueuedAnalyticsSink::QueuedAnalyticsSink(Surroundings surroundings, SignalQueue queue, std::string url)
    : surroundings_(std::move(surroundings)),
      queue_(std::move(queue)),
      url_(std::move(url)),
      session_(base::makeUuid(surroundings_.random)),
      scope_(surroundings_.scheduler) {}

void QueuedAnalyticsSink::initialise(std::string_view appID) {
    appID_ = appID;
    if (!queue_.isEmpty()) sendAfter(base::Duration::zero());
}

void QueuedAnalyticsSink::send(std::string_view name, const Parameters& parameters) {
    Json signal{{"id", base::makeUuid(surroundings_.random)}, {"session", session_}};
    signal["time"] = base::IsoTime(surroundings_.scheduler.wallNow()).view();
    signal["name"] = name;
    signal["parameters"] = parameters;
    queue_.add(dumped(signal));
    if (!timer_ && !isSending_) sendAfter(kBatchDelay);
}

void QueuedAnalyticsSink::sendActivation(std::string_view featureName) {
    send("TelemetryDeck.Activation.coreFeatureUsed",
         {{"TelemetryDeck.Activation.featureName", std::string(featureName)}});
}

void QueuedAnalyticsSink::sendAfter(base::Duration delay) {
    timer_ = surroundings_.scheduler.after(delay, [this] {
        isSending_ = true;
        scope_.start(sendBatches());
    });
}

base::Task<void> QueuedAnalyticsSink::sendBatches() {
    bool isDelivered = true;
    while (isDelivered && !queue_.isEmpty()) {
        if (!surroundings_.enabled()) {
            queue_.clear();
            break;
        }
        auto batch = queue_.front(kMostInBatch);
        const auto last = batch.last;
        isDelivered = co_await deliver(std::move(batch));
        if (isDelivered) queue_.removeThrough(last);
    }
    isSending_ = false;
    if (isDelivered) {
        retry_ = kFirstRetry;
    } else {
        sendAfter(std::exchange(retry_, std::min(2 * retry_, kLastRetry)));
    }
}

base::Task<bool> QueuedAnalyticsSink::deliver(SignalQueue::Batch batch) {
    auto request = requestOf(batch);
    try {
        const auto response = co_await surroundings_.client.send(std::move(request));
        if (response.isSuccess()) co_return true;
        base::log("[Analytics] The server answered with status " + std::to_string(response.status));
    } catch (const base::HttpError& error) {
        base::log("[Analytics] " + error.description());
    }
    co_return false;
}

base::HttpRequest QueuedAnalyticsSink::requestOf(const SignalQueue::Batch& batch) const {
    Json body{{"app_id", appID_}, {"signals", Json::array()}};
    for (const auto& line : batch.lines) {
        auto signal = Json::parse(line, nullptr, false);
        if (!signal.is_discarded()) body["signals"].push_back(std::move(signal));
    }
    base::HttpRequest request;
    request.method = "POST";
    request.url = url_;
    request.headers = {{"Content-Type", "application/json"}};
    request.body = dumped(body);
    return request;
}

}  // namespace tessivox::telemetry
