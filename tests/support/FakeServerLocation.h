#pragma once

#include <optional>
#include <string>

#include "base/ports/HttpClient.h"
#include "transcription/ServerAddress.h"
#include "transcription/ports/ServerLocation.h"

namespace tessivox::testing {

/// A server whose address the test knows.
struct FakeServerLocation final : transcription::ServerLocation {
    std::string url = "https://example.org/api";
    std::optional<base::HttpErrorCode> failure;  ///< there is no server

    base::Task<std::string> baseURL() override {
        if (failure) throw base::HttpError(*failure, "There is no server.");
        co_return url;
    }
    std::string shownBaseURL() const override { return transcription::maskedURL(url); }
};

}  // namespace tessivox::testing
