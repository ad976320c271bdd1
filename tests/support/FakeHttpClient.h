#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "base/Completion.h"
#include "base/ports/HttpClient.h"

namespace tessivox::testing {

/// A server that writes down what it is asked. Without an answer of its own it is not there.
class FakeHttpClient final : public base::HttpClient {
public:
    std::vector<base::HttpRequest> requests;
    /// The status of the next answers; absent: the connection is refused.
    std::optional<int> status;
    /// While true a request stays open.
    bool isSilent = false;

    base::Task<base::HttpResponse> send(base::HttpRequest request) override {
        requests.push_back(std::move(request));
        if (isSilent) {
            const base::Completion<int> never;
            co_await never;
        }
        if (!status) throw base::HttpError(base::HttpErrorCode::refused, "The server does not answer.");
        base::HttpResponse response;
        response.status = *status;
        co_return response;
    }
};

}  // namespace tessivox::testing
