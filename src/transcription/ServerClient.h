#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
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
    Parts parts_;
};

}  // namespace tessivox::transcription
