#include "transcription/ServerClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "base/TaskScope.h"
#include "support/CrashingFiles.h"
#include "support/FakeHttpClient.h"
#include "support/FakeServerLocation.h"
#include "support/ManualRuntime.h"
#include "support/MemoryPreferences.h"
#include "transcription/TranscriptionError.h"

namespace tessivox::transcription {
namespace {

using namespace std::chrono_literals;
using E = TranscriptionError;
using Http = testing::FakeHttpClient;
using nlohmann::json;

const std::string kUsage = R"({"used":1,"limit":5,"remaining":4,"can_transcribe":true})";
const std::string kUsageReply = R"({"usage":)" + kUsage + "}";
const std::string kReason = R"({"error":"x","code":"y"})";

struct ServerClientTest : ::testing::Test {
    testing::ManualRuntime time;
    testing::CrashingFiles files;
    testing::MemoryPreferences preferences;
    Http server;
    testing::FakeServerLocation location;
    int uuids = 0;
    DeviceIdentity identity{preferences, files, "/state/token.json",
                            [this] { return "UUID-" + std::to_string(++uuids); }};
    ServerClient client{{server, location, identity, "1.2", [this] { return "UUID-" + std::to_string(++uuids); }}};

    template <typename T>
    T ask(base::Task<T> task) {
        return testing::await(time, std::move(task));
    }
    base::Task<std::string> submit(const std::string& name = "a.m4a", const std::string& bytes = "BYTES") {
        return client.sendSubmit({name, std::make_shared<const std::string>(bytes)});
    }
    /// The description of the error, its code for logs and whether it passes.
    template <typename T>
    std::string failureOf(base::Task<T> task) {
        try {
            ask(std::move(task));
            return "none";
        } catch (const TranscriptionError& error) {
            return error.description() + " | " + error.telemetryCode() + (error.isTransient() ? " | transient" : "");
        }
    }
    std::optional<std::string> lastHeader(const std::string& name) {
        return Http::header(server.requests.back(), name);
    }
};

TEST_F(ServerClientTest, SendsEachRequestAsTheServerExpectsIt) {
    identity.storeDeviceToken(location.url, "TOKEN");
    server.will("/usage", Http::json(200, kUsageReply));
    server.will("/submit", Http::json(200, R"({"task_id":"t","status":"pending"})"));
    server.will("/status", Http::json(200, R"({"task_id":"t","status":"pending"})"));
    server.will("/summarize", Http::json(200, R"({"summary":"S","usage":)" + kUsage + "}"));
    server.status = 200;
    EXPECT_EQ(ask(client.usage()), (UsageInfo{1, 5, 4, true, std::nullopt}));
    ask(client.fetchDeviceToken());
    EXPECT_EQ(ask(submit()), "t");
    EXPECT_EQ(ask(client.fetchTaskStatus("t")).status, "pending");
    EXPECT_EQ(ask(client.sendSummarize("all\xff", "T")).summary, "S");
    ask(client.sendFeedback("s", "5", std::nullopt));
    ask(client.sendMessage("m", "a@b"));

    const struct {
        const char* line;
        base::Duration timeout;
        json body;
    } expected[] = {{"GET /usage", 60s, nullptr},
                    {"GET /user/me", 60s, nullptr},
                    {"POST /transcribe/submit", 300s, nullptr},
                    {"GET /transcribe/status/t", 30s, nullptr},
                    {"POST /summarize", 120s, {{"text", "all\ufffd"}, {"title", "T"}}},
                    {"POST /feedback", 30s, {{"survey_id", "s"}, {"answer", "5"}}},
                    {"POST /message", 30s, {{"text", "m"}, {"email", "a@b"}}}};
    ASSERT_EQ(server.requests.size(), std::size(expected));
    for (std::size_t at = 0; at < std::size(expected); ++at) {
        const auto& request = server.requests[at];
        EXPECT_EQ(request.method + " " + request.url.substr(location.url.size()), expected[at].line);
        EXPECT_EQ(request.timeout, expected[at].timeout) << expected[at].line;
        EXPECT_EQ(request.deadline, 5 * expected[at].timeout) << expected[at].line;
        EXPECT_EQ(Http::header(request, "X-Device-ID"), "UUID-1");
        EXPECT_EQ(Http::header(request, "X-App-Version"), "1.2");
        const bool isMessage = request.url.ends_with("/message");
        EXPECT_EQ(Http::header(request, "Authorization"), isMessage ? std::nullopt : std::optional("Bearer TOKEN"));
        if (expected[at].body.is_null()) continue;
        EXPECT_EQ(json::parse(request.body), expected[at].body);
        EXPECT_EQ(Http::header(request, "Content-Type"), "application/json");
    }
}

TEST_F(ServerClientTest, UploadsOnePartAndLeavesNoNameAWayOutOfItsQuotes) {
    server.usually("/submit", Http::json(200, R"({"task_id":"t","status":"pending"})"));
    ask(submit("a \"b\"\r\n\xc3\xa4\\%22.m4a", std::string("\0\r\n--", 5)));
    const auto boundary = "UUID-1";
    EXPECT_EQ(lastHeader("Content-Type"), std::string("multipart/form-data; boundary=") + boundary);
    EXPECT_EQ(Http::bodyOf(server.requests.back()),
              "--UUID-1\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a %22b%22%0D%0A\xc3\xa4\\%22.m4a\""
              "\r\nContent-Type: audio/m4a\r\n\r\n" +
                  std::string("\0\r\n--", 5) + "\r\n--UUID-1--\r\n");
    ask(submit());
    EXPECT_NE(lastHeader("Content-Type"), std::string("multipart/form-data; boundary=") + boundary);
}

TEST_F(ServerClientTest, AsksOnceMoreWithoutATokenThatTheServerDoesNotKnow) {
    identity.storeDeviceToken(location.url, "OLD");
    server.will("/usage", Http::json(401, ""));
    server.will("/usage", Http::json(200, kUsageReply));
    ask(client.usage());
    ASSERT_EQ(server.requests.size(), 2U);
    EXPECT_EQ(Http::header(server.requests[0], "Authorization"), "Bearer OLD");
    EXPECT_EQ(lastHeader("Authorization"), std::nullopt);
    EXPECT_EQ(identity.deviceToken(location.url), std::nullopt);

    server.status = 401;
    EXPECT_EQ(failureOf(client.usage()), "Server error: Status 401 | server_4xx");
    EXPECT_EQ(server.requests.size(), 3U) << "without a token there is nothing to try again";
    identity.storeDeviceToken(location.url, "OTHER");
    EXPECT_EQ(failureOf(submit()), "Server error: Status 401 | server_4xx") << "the second answer counts";
    EXPECT_EQ(Http::bodyOf(server.requests[3]), Http::bodyOf(server.requests[4]));
    EXPECT_EQ(server.requests.size(), 5U);
}

TEST_F(ServerClientTest, KeepsATokenThatCameWhileAnOlderOneWasRefused) {
    identity.storeDeviceToken(location.url, "OLD");
    const Http::Gate gate;
    server.will("/usage", Http::json(401, "").when(gate));
    server.status = 500;
    base::TaskScope scope(time);
    const auto quietly = [](base::Task<UsageInfo> task) -> base::Task<void> {
        try {
            co_await task;
        } catch (const TranscriptionError&) {  // of no interest here
        }
    };
    scope.start(quietly(client.usage()));
    time.settle();
    identity.storeDeviceToken(location.url, "NEW");
    gate.succeed(true);
    time.settle();
    EXPECT_TRUE(scope.isIdle());
    EXPECT_EQ(identity.deviceToken(location.url), "NEW");
}

TEST_F(ServerClientTest, StoresATokenForItsServerAloneAndReportsNoFailure) {
    for (const auto* body :
         {"", "{}", R"({"token":null})", R"({"token":""})", R"({"token":7})", R"({"token":"a\r\nb"})"}) {
        server.will("/user/me", Http::json(200, body));
        ask(client.fetchDeviceToken());
        EXPECT_EQ(identity.deviceToken(location.url), std::nullopt) << body;
    }
    server.will("/user/me", Http::json(500, R"({"token":"T"})"));
    ask(client.fetchDeviceToken());
    ask(client.fetchDeviceToken());  // the server is not there
    EXPECT_EQ(identity.deviceToken(location.url), std::nullopt);
    server.will("/user/me", Http::json(200, R"({"token":"T"})"));
    ask(client.fetchDeviceToken());
    EXPECT_EQ(identity.deviceToken(location.url), "T");
    location.url = "https://elsewhere.example.org/api";
    server.status = 500;
    failureOf(client.usage());
    EXPECT_EQ(lastHeader("Authorization"), std::nullopt);
    location.failure = base::HttpErrorCode::notConnected;
    ask(client.fetchDeviceToken());
}

TEST_F(ServerClientTest, TellsEachAnswerAsWhatItIs) {
    const auto malformed = "Server error: Malformed response | invalid_response";
    const std::string quota =
        R"({"error":"x","code":"y","usage":{"used":5,"limit":5,"remaining":0,"can_transcribe":false}})";
    const struct {
        std::function<std::string()> ask;
        int status;
        std::string body;
        std::string expected;
    } cases[] = {
        {[&] { return failureOf(client.usage()); }, 200, R"({"usage":{"used":1,"limit":5,"remaining":4}})", malformed},
        {[&] { return failureOf(client.usage()); }, 204, kUsageReply, "Server error: Status 204 | server_2xx"},
        {[&] { return failureOf(client.usage()); }, 503, "", "Server error: Status 503 | server_5xx | transient"},
        {[&] { return failureOf(submit()); }, 200, "{", malformed},
        {[&] { return failureOf(submit()); }, 200, R"({"task_id":"..","status":"pending"})", malformed},
        {[&] { return failureOf(submit()); }, 201, "", "Server error: Status 201 | server_2xx"},
        {[&] { return failureOf(submit()); }, 402, quota, "Transcription limit reached (5/5) | limit_exceeded"},
        {[&] { return failureOf(submit()); }, 402, kReason, "Transcription limit reached (0/0) | limit_exceeded"},
        {[&] { return failureOf(submit()); }, 402, "<html>", "Transcription limit reached (0/0) | limit_exceeded"},
        {[&] { return failureOf(submit()); }, 422, kReason, "Transcription failed: x | provider_error"},
        {[&] { return failureOf(submit()); }, 404, "<html>", "Server error: Status 404 | server_4xx"},
        {[&] { return failureOf(submit()); }, 503, kReason, "Server error: Status 503 | server_5xx | transient"},
        {[&] { return failureOf(submit()); }, 502, kReason, "Server error: Status 502 | server_502 | transient"},
        {[&] { return failureOf(client.fetchTaskStatus("t")); }, 200, "[]", malformed},
        {[&] { return failureOf(client.fetchTaskStatus("t")); }, 404, kReason,
         "The server lost this transcription. Try again. | task_lost"},
        {[&] { return failureOf(client.fetchTaskStatus("t")); }, 422, kReason, "Server error: Status 422 | server_4xx"},
        {[&] { return failureOf(client.sendSummarize("t", {})); }, 200, R"({"summary":"s"})", malformed},
        {[&] { return failureOf(client.sendSummarize("t", {})); }, 402, quota,
         "Transcription limit reached (5/5) | limit_exceeded"},
        {[&] { return failureOf(client.sendSummarize("t", {})); }, 503, kReason,
         "Transcription failed: x | provider_error"},
        {[&] { return failureOf(client.sendSummarize("t", {})); }, 500, "",
         "Server error: Status 500 | server_5xx | transient"},
    };
    for (const auto& [askFor, status, body, expected] : cases) {
        server.will("/", Http::json(status, body));
        EXPECT_EQ(askFor(), expected) << status << body;
    }
    server.status = 201;
    const std::string refused = "Server error: Status 201 | server_2xx";
    EXPECT_EQ(failureOf([](ServerClient& asked) -> base::Task<int> {
                  co_await asked.sendFeedback("s", "1", "x");
                  co_return 0;
              }(client)),
              refused);
}

TEST_F(ServerClientTest, CallsWhatKeepsAnAnswerAwayANetworkError) {
    EXPECT_EQ(failureOf(client.usage()), "Network error: The server does not answer. | network | transient");
    server.will("/usage", Http::failure(base::HttpErrorCode::cancelled));
    EXPECT_EQ(failureOf(client.usage()), "Network error: The server does not answer. | network");
    location.failure = base::HttpErrorCode::notConnected;
    try {
        ask(submit());
        FAIL();
    } catch (const TranscriptionError& error) {
        ASSERT_TRUE(error.as<E::NetworkError>());
        EXPECT_EQ(error.as<E::NetworkError>()->code, -1009);
        EXPECT_EQ(error.as<E::NetworkError>()->message, "There is no server.");
    }
}

TEST_F(ServerClientTest, KeepsATasksIdWithinItsPartOfThePath) {
    server.usually("/status", Http::json(200, R"({"task_id":"t","status":"pending"})"));
    ask(client.fetchTaskStatus("../a b?c#d%\xff"));
    EXPECT_EQ(server.requests.back().url, location.url + "/transcribe/status/..%2Fa%20b%3Fc%23d%25%FF");
    for (const auto* id : {"", ".", ".."}) {
        EXPECT_EQ(failureOf(client.fetchTaskStatus(id)), "The server lost this transcription. Try again. | task_lost");
    }
    EXPECT_EQ(server.requests.size(), 1U);
}

TEST_F(ServerClientTest, GivesARequestUpWithItsTask) {
    server.will("/submit", Http::silence());
    {
        base::TaskScope scope(time);
        const auto wait = [](base::Task<std::string> task) -> base::Task<void> { co_await task; };
        scope.start(wait(submit()));
        time.settle();
        EXPECT_EQ(server.open, 1);
    }
    EXPECT_EQ(server.abandoned, 1);
}

TEST_F(ServerClientTest, ShowsNoSecretOfTheAddress) {
    location.url = "http://127.0.0.1:4711/0123456789abcdef0123456789abcdef/api";
    EXPECT_EQ(client.shownSubmitURL(), "http://127.0.0.1:4711/***/api/transcribe/submit");
}

TEST(TranscriptionErrorTest, TellsTheRowWhatItNeeds) {
    const auto hint = [](E::Case which) { return TranscriptionError(std::move(which)).failureHint(); };
    EXPECT_EQ(hint(E::NetworkError{-1, "m"}), "No connection");
    EXPECT_EQ(hint(E::ServerHTTPError{500}), "Server unavailable");
    EXPECT_EQ(hint(E::ServerHTTPError{499}), std::nullopt);
    EXPECT_EQ(hint(E::TimedOut{}), "Timed out");
    EXPECT_EQ(hint(E::TaskLost{}), std::nullopt);
    for (const int status : {500, 502, 503, 504})
        EXPECT_TRUE(TranscriptionError(E::ServerHTTPError{status}).isTransient());
    for (const int status : {401, 501, 505}) EXPECT_FALSE(TranscriptionError(E::ServerHTTPError{status}).isTransient());
    EXPECT_FALSE(TranscriptionError(E::TimedOut{}).isTransient());
}

}  // namespace
}  // namespace tessivox::transcription
