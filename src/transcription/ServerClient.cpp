#include "transcription/ServerClient.h"

#include <string_view>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "transcription/ServerJson.h"
#include "transcription/TranscriptionError.h"

namespace tessivox::transcription {
namespace {

using base::HttpRequest;
using base::HttpResponse;
using base::Task;
using E = TranscriptionError;

constexpr const char* kSubmitPath = "/transcribe/submit";
constexpr const char* kMalformed = "Malformed response";

template <typename T>
T wellFormed(std::optional<T> record) {
    if (!record) throw TranscriptionError(E::ServerError{kMalformed});
    return std::move(*record);
}

[[noreturn]] void refuse(int status) { throw TranscriptionError(E::ServerHTTPError{status}); }

[[noreturn]] void refuseForQuota(const HttpResponse& response) {
    const auto reason = readAPIError(response.body);
    const auto usage = reason && reason->usage ? *reason->usage : UsageInfo();
    throw TranscriptionError(E::LimitExceeded{usage.used, usage.limit});
}

/// With the server's own words if it has some.
[[noreturn]] void refuseWithReason(const HttpResponse& response) {
    if (auto reason = readAPIError(response.body)) {
        throw TranscriptionError(E::TranscriptionFailed{std::move(reason->error)});
    }
    refuse(response.status);
}

/// The three bytes that would end a quoted name are sent as the HTML standard's form submission sends them, all others
/// as they are.
std::string quotedName(std::string_view name) {
    std::string quoted;
    for (const char byte : name) {
        if (byte == '"') {
            quoted += "%22";
        } else if (byte == '\r') {
            quoted += "%0D";
        } else if (byte == '\n') {
            quoted += "%0A";
        } else {
            quoted += byte;
        }
    }
    return quoted;
}

/// Whether the id can be one part of a path: some parts mean other folders to whoever reads addresses.
bool isTaskId(std::string_view id) { return !id.empty() && id != "." && id != ".."; }

/// One part of a path, whatever the id's bytes are.
std::string pathPart(std::string_view id) {
    auto part = base::percentEncoded(id);
    for (auto at = part.find('/'); at != part.npos; at = part.find('/', at)) part.replace(at, 1, "%2F");
    return part;
}

void addJson(HttpRequest& request, std::string body) {
    request.headers.emplace_back("Content-Type", "application/json");
    request.body = std::move(body);
}

}  // namespace

std::string ServerClient::shownSubmitURL() const { return parts_.location.shownBaseURL() + kSubmitPath; }

Task<UsageInfo> ServerClient::usage() {
    auto call = makeCall("GET", "/usage", parts_.timeouts.usual);
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status != 200) refuse(response.status);
    co_return wellFormed(readUsage(response.body));
}

Task<void> ServerClient::fetchDeviceToken() {
    try {
        co_await storeGivenToken();
    } catch (const base::Error& error) {
        base::log("[Transcription] No device token: " + error.description());
    }
}

Task<void> ServerClient::storeGivenToken() {
    auto call = makeCall("GET", "/user/me", parts_.timeouts.usual);
    const auto baseURL = co_await parts_.location.baseURL();
    const auto response = co_await sendTo(std::move(call), baseURL);
    const auto token = response.status == 200 ? readDeviceToken(response.body) : std::nullopt;
    if (token) parts_.identity.storeDeviceToken(baseURL, *token);
}

Task<std::string> ServerClient::sendSubmit(Upload upload) {
    auto call = makeSubmit(upload);
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status == 402) refuseForQuota(response);
    if (response.status >= 500) refuse(response.status);
    if (response.status != 200) refuseWithReason(response);
    auto taskId = wellFormed(readSubmit(response.body));
    if (!isTaskId(taskId)) throw TranscriptionError(E::ServerError{kMalformed});
    co_return taskId;
}

Task<TaskStatusResponse> ServerClient::fetchTaskStatus(std::string taskId) {
    if (!isTaskId(taskId)) throw TranscriptionError(E::TaskLost{});
    auto call = makeCall("GET", "/transcribe/status/" + pathPart(taskId), parts_.timeouts.taskStatus);
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status == 404) throw TranscriptionError(E::TaskLost{});
    if (response.status != 200) refuse(response.status);
    co_return wellFormed(readTaskStatus(response.body));
}

Task<SummarizeResponse> ServerClient::sendSummarize(std::string text, std::optional<std::string> title) {
    auto call = makeCall("POST", "/summarize", parts_.timeouts.summarize);
    addJson(call.request, writeTexts({{"text", std::move(text)}, {"title", std::move(title)}}));
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status == 402) refuseForQuota(response);
    if (response.status != 200) refuseWithReason(response);
    co_return wellFormed(readSummarize(response.body));
}

Task<void> ServerClient::sendFeedback(std::string surveyId, std::string answer, std::optional<std::string> text) {
    auto call = makeCall("POST", "/feedback", parts_.timeouts.message);
    addJson(call.request,
            writeTexts({{"survey_id", std::move(surveyId)}, {"answer", std::move(answer)}, {"text", std::move(text)}}));
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status != 200) refuse(response.status);
}

Task<void> ServerClient::sendMessage(std::string text, std::optional<std::string> email) {
    auto call = makeCall("POST", "/message", parts_.timeouts.message);
    call.isAnonymous = true;
    addJson(call.request, writeTexts({{"text", std::move(text)}, {"email", std::move(email)}}));
    const auto response = co_await sendAuthorized(std::move(call));
    if (response.status != 200) refuse(response.status);
}

ServerClient::Call ServerClient::makeCall(std::string method, std::string path, base::Duration timeout) const {
    Call call;
    call.request.method = std::move(method);
    call.request.url = std::move(path);
    call.request.timeout = timeout;
    call.request.deadline = timeout * parts_.timeouts.deadlineFactor;
    return call;
}

ServerClient::Call ServerClient::makeSubmit(const Upload& upload) const {
    const auto boundary = parts_.makeUuid();
    auto call = makeCall("POST", kSubmitPath, parts_.timeouts.submit);
    call.request.headers.emplace_back("Content-Type", "multipart/form-data; boundary=" + boundary);
    call.request.body = "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" +
                        quotedName(upload.fileName) + "\"\r\nContent-Type: audio/m4a\r\n\r\n";
    call.request.rest = {upload.bytes, std::make_shared<const std::string>("\r\n--" + boundary + "--\r\n")};
    return call;
}

/// The request with its address and the common headers.
HttpRequest ServerClient::addressed(const Call& call, const std::string& baseURL,
                                    const std::optional<std::string>& token) {
    auto request = call.request;
    request.url.insert(0, baseURL);
    request.headers.emplace_back("X-Device-ID", parts_.identity.deviceIdentifier());
    if (token) request.headers.emplace_back("Authorization", "Bearer " + *token);
    request.headers.emplace_back("X-App-Version", parts_.appVersion.empty() ? "unknown" : parts_.appVersion);
    return request;
}

Task<HttpResponse> ServerClient::sendAuthorized(Call call) {
    std::optional<E::NetworkError> failure;
    try {
        const auto baseURL = co_await parts_.location.baseURL();
        co_return co_await sendTo(std::move(call), baseURL);
    } catch (const base::HttpError& error) {
        failure = E::NetworkError{error.code(), error.description()};
    }
    throw TranscriptionError(std::move(*failure));
}

/// A server that does not know the token is asked once more without it; that answer counts, whatever it is.
Task<HttpResponse> ServerClient::sendTo(Call call, std::string baseURL) {
    const auto token = call.isAnonymous ? std::nullopt : parts_.identity.deviceToken(baseURL);
    auto request = addressed(call, baseURL, token);
    auto response = co_await parts_.http.send(std::move(request));
    if (response.status != 401 || !token) co_return response;
    forget(*token);
    auto repeated = addressed(call, baseURL, std::nullopt);
    co_return co_await parts_.http.send(std::move(repeated));
}

void ServerClient::forget(const std::string& token) {
    try {
        parts_.identity.removeDeviceToken(token);
    } catch (const base::FileError& error) {
        base::log("[Transcription] A refused device token cannot be removed: " + error.description());
    }
}

}  // namespace tessivox::transcription
