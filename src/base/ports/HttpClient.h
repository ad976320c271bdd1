#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Error.h"
#include "base/Task.h"
#include "base/Units.h"

namespace tessivox::base {

/// Names and values, in order; names are compared without regard to case.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method = "GET";
    std::string url;  ///< http or https
    HttpHeaders headers;
    std::string body;
    /// What follows in the body, for contents that are too large to be copied.
    std::vector<std::shared_ptr<const std::string>> rest{};
    Duration timeout = std::chrono::seconds(60);  ///< longest time in which not one byte moves
    Duration deadline = std::chrono::hours(1);    ///< longest time for all of it

    std::size_t bodySize() const {
        auto size = body.size();
        for (const auto& piece : rest) size += piece->size();
        return size;
    }
};

struct HttpResponse {
    int status = 0;
    HttpHeaders headers;
    std::string body;

    bool isSuccess() const { return status >= 200 && status < 300; }
};

/// What keeps a request from being answered. The numbers are written into logs and usage signals.
enum class HttpErrorCode {
    unknown = -1,
    cancelled = -999,  ///< the client went while the request ran
    badAddress = -1000,
    timedOut = -1001,
    hostNotFound = -1003,
    refused = -1004,
    connectionLost = -1005,
    redirected = -1007,
    notConnected = -1009,
    badAnswer = -1011,
    tooLarge = -1103,  ///< more than the client takes
    noSecureConnection = -1200,
    untrustedCertificate = -1202,
};

/// A request that got no whole answer. An answer of any status is none of these.
class HttpError : public Error {
public:
    HttpError(HttpErrorCode code, std::string description)
        : Error("http", static_cast<int>(code), std::move(description)) {}
};

/// Asks servers. Redirects are answers like others: they are not followed. Main thread.
class HttpClient {
public:
    /// The most bytes of an answer's body.
    static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

    virtual ~HttpClient() = default;
    /// Throws HttpError. Destroying the task aborts the request.
    virtual Task<HttpResponse> send(HttpRequest request) = 0;
};

}  // namespace tessivox::base
