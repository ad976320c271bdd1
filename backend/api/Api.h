#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "backend/Faults.h"
#include "backend/Summarizer.h"
#include "backend/api/DeviceTokens.h"
#include "backend/api/MessageLog.h"
#include "backend/api/Places.h"
#include "backend/http/Http.h"
#include "backend/jobs/JobStore.h"

namespace tessivox::backend {

/// Who a server is for its clients.
struct Identity {
    std::string secret;              ///< the first part of every path
    std::vector<std::string> hosts;  ///< by which names they call it, in lower case, without port
};

/// What the endpoints work with. All of it is there for any thread.
struct ApiParts {
    JobStore& jobs;
    DeviceTokens& devices;
    MessageLog& messages;
    Summarizer& summarizer;
    Faults& faults;
    bool takesFaults;  ///< whether clients, which are tests then, may order them
    std::function<void()> jobArrived;
};

/// The endpoints. Any thread.
class Api {
public:
    /// How long a client waits for a job since it has submitted it, in seconds. A job that takes longer is answered
    /// with 503, so that clients come back as long as there is somebody working on it.
    static constexpr std::int64_t kClientsPatience = 45 * 60;
    static constexpr std::int64_t kAllowance = 1000000;  ///< of transcriptions, which nobody counts
    /// Summaries at a time, each of up to 8 MB of text, and how many more may wait for one of them to end.
    static constexpr std::size_t kSummaries = 2;
    static constexpr std::size_t kWaitingSummaries = 8;  ///< or whose text is still arriving
    static constexpr std::chrono::seconds kSummaryPatience{20};

    Api(Identity identity, ApiParts parts) : identity_(std::move(identity)), parts_(std::move(parts)) {}

    HttpAnswer answer(const HttpRequest& request);
    /// Whether no request that knew the secret has been under way for longer than that.
    bool isIdleFor(std::chrono::steady_clock::duration time) const {
        return underWay_ == 0 && std::chrono::steady_clock::now() - lastRequest_.load() > time;
    }

private:
    struct Endpoint;
    static const std::vector<Endpoint>& endpoints();

    const Identity identity_;
    const ApiParts parts_;
    Places summaryRoom_{kSummaries + kWaitingSummaries, 0, std::chrono::seconds(0)};
    Places summaries_{kSummaries, kWaitingSummaries, kSummaryPatience};
    std::atomic<int> underWay_ = 0;
    /// When the last one ended.
    std::atomic<std::chrono::steady_clock::time_point> lastRequest_ = std::chrono::steady_clock::now();

    std::string_view pathOf(const HttpRequest& request) const;
    void checkOrigin(const HttpRequest& request) const;
    void checkToken(const HttpRequest& request) const;
    HttpAnswer serve(const HttpRequest& request, const Endpoint& endpoint, std::string_view argument);
    HttpAnswer perform(const HttpRequest& request, const Endpoint& endpoint, std::string_view argument);

    HttpAnswer usage(const HttpRequest& request, std::string_view);
    HttpAnswer me(const HttpRequest& request, std::string_view);
    HttpAnswer submit(const HttpRequest& request, std::string_view);
    HttpAnswer status(const HttpRequest& request, std::string_view id);
    HttpAnswer summarize(const HttpRequest& request, std::string_view);
    HttpAnswer keep(const HttpRequest& request, std::string_view kind);
    HttpAnswer orderFaults(const HttpRequest& request, std::string_view);
    nlohmann::json usageRecord() const;
};

}  // namespace tessivox::backend
