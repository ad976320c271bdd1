#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
#include "base/Units.h"
#include "base/ports/HttpClient.h"
#include "transcription/DeviceIdentity.h"
#include "transcription/ServerRecords.h"
#include "transcription/ports/ServerLocation.h"

namespace tessivox::transcription {

/// The bytes of an upload, kept over its repeats.
struct Upload {
    std::string fileName;  ///< of the recording, whatever file the bytes come from
    std::shared_ptr<const std::string> bytes;
};

/// The longest times in which nothing moves, by kind of request.
struct ServerTimeouts {
    base::Duration usual = std::chrono::seconds(60);
    base::Duration submit = std::chrono::seconds(300);
    base::Duration taskStatus = std::chrono::seconds(30);
    base::Duration summarize = std::chrono::seconds(120);
    base::Duration message = std::chrono::seconds(30);
    int deadlineFactor = 5;  ///< all of a request may take so many times as long
};

/// The server's endpoints. Every operation throws TranscriptionError; destroying its task aborts the request. Main
/// thread.
class ServerClient {
public:
    struct Parts {
        base::HttpClient& http;
        ServerLocation& location;
        DeviceIdentity& identity;
        std::string appVersion;
        std::function<std::string()> makeUuid;  ///< upper-case text
        ServerTimeouts timeouts{};
    };
    explicit ServerClient(Parts parts) : parts_(std::move(parts)) {}

    /// Where submissions go, for the log: a secret in the address is masked.
    std::string shownSubmitURL() const;

    base::Task<UsageInfo> usage();
    /// Stores the token if the server gives one. Whatever fails, nothing happens.
    base::Task<void> fetchDeviceToken();
    /// Gives the task's id.
    base::Task<std::string> sendSubmit(Upload upload);
    base::Task<TaskStatusResponse> fetchTaskStatus(std::string taskId);
    base::Task<SummarizeResponse> sendSummarize(std::string text, std::optional<std::string> title);
    base::Task<void> sendFeedback(std::string surveyId, std::string answer, std::optional<std::string> text);
    base::Task<void> sendMessage(std::string text, std::optional<std::string> email);

private:
    /// A request before it is known which server it goes to.
    struct Call {
        base::HttpRequest request;  ///< its url is the path, its headers are those beyond the common ones
        bool isAnonymous = false;   ///< without a token, whether there is one or not
    };
    Parts parts_;

    Call makeCall(std::string method, std::string path, base::Duration timeout) const;
    Call makeSubmit(const Upload& upload) const;
    base::HttpRequest addressed(const Call& call, const std::string& baseURL, const std::optional<std::string>& token);
    void forget(const std::string& token);
    base::Task<base::HttpResponse> sendAuthorized(Call call);
    base::Task<base::HttpResponse> sendTo(Call call, std::string baseURL);
    base::Task<void> storeGivenToken();
};

}  // namespace tessivox::transcription
