#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "base/ports/HttpClient.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "support/CrashingFiles.h"
#include "support/FakeServerLocation.h"
#include "support/MemoryPreferences.h"
#include "support/StubServer.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionError.h"

namespace tessivox::transcription {
namespace {

using namespace std::chrono_literals;
using base::HttpErrorCode;
using testing::StubServer;

/// The client over real connections to a server that breaks its word in every way.
struct ServerClientOnTheWireTest : testing::QtTest {
    StubServer server;
    qt::QtHttpClient http{"Tessivox/1.2"};
    testing::CrashingFiles files;
    testing::MemoryPreferences preferences;
    DeviceIdentity identity{preferences, files, "/state/token.json", [] { return std::string("DEVICE"); }};
    testing::FakeServerLocation location;
    ServerClient client{{http, location, identity, "1.2", [] { return std::string("BOUNDARY"); },
                         ServerTimeouts{300ms, 300ms, 300ms, 300ms, 300ms, 3}}};
    Upload upload{"a.m4a", std::make_shared<const std::string>(20'000'000, 'x')};

    ServerClientOnTheWireTest() { location.url = server.url("/api"); }

    /// "ok", or how the request failed.
    template <typename T>
    std::string outcomeOf(base::Task<T> task) {
        try {
            finish(std::move(task));
            return "ok";
        } catch (const TranscriptionError& error) {
            const auto* network = error.as<TranscriptionError::NetworkError>();
            return network ? std::to_string(network->code) : error.telemetryCode();
        }
    }
    std::string submitAgainst(StubServer::Answer answer) {
        server.willAnswer(std::move(answer));
        return outcomeOf(client.sendSubmit(upload));
    }
    std::string pollAgainst(StubServer::Answer answer) {
        server.willAnswer(std::move(answer));
        return outcomeOf(client.fetchTaskStatus("t"));
    }
};

std::string textOf(HttpErrorCode code) { return std::to_string(static_cast<int>(code)); }

TEST_F(ServerClientOnTheWireTest, SendsAnUploadByteForByte) {
    server.willAnswer(StubServer::status(200, "", R"({"task_id":"t","status":"pending"})"));
    EXPECT_EQ(finish(client.sendSubmit(upload)), "t");
    const auto request = server.requests().at(0);
    EXPECT_TRUE(request.starts_with("POST /api/transcribe/submit HTTP/1.1\r\n")) << request.substr(0, 500);
    EXPECT_TRUE(StubServer::bodyOf(request) ==
                "--BOUNDARY\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.m4a\"\r\n"
                "Content-Type: audio/m4a\r\n\r\n" +
                    *upload.bytes + "\r\n--BOUNDARY--\r\n");
}

TEST_F(ServerClientOnTheWireTest, EndsEveryUploadThatABrokenServerLeavesOpen) {
    ASSERT_EQ(pollAgainst(StubServer::status(200, "", R"({"task_id":"t","status":"pending"})")), "ok");
    const auto lost = textOf(HttpErrorCode::connectionLost);
    const auto timedOut = textOf(HttpErrorCode::timedOut);
    EXPECT_EQ(submitAgainst({"", false, 1'000'000}), lost) << "reset in mid-upload";
    EXPECT_EQ(submitAgainst({"", false, 1}), lost);
    EXPECT_EQ(submitAgainst({"", true}), timedOut) << "nothing at all";
    EXPECT_EQ(submitAgainst({"", false}), lost);
    EXPECT_EQ(submitAgainst({"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{\"task_id\"", false}), lost) << "half";
    EXPECT_EQ(submitAgainst({"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{\"task_id\"", true}), timedOut);
    EXPECT_EQ(submitAgainst(StubServer::status(200, "", "<html>")), "invalid_response");
    const auto before = server.requests().size();
    EXPECT_EQ(submitAgainst({"\x01\x02garbage\r\n\r\n", false}), lost);
    EXPECT_EQ(server.requests().size(), before + 1) << "no upload is sent twice";
}

TEST_F(ServerClientOnTheWireTest, GivesUpOnAnAnswerThatOnlyTrickles) {
    ASSERT_EQ(pollAgainst(StubServer::status(200, "", R"({"task_id":"t","status":"pending"})")), "ok");
    StubServer::Answer trickle = StubServer::status(200, "", std::string(1000, ' '));
    trickle.pace = 100ms;
    const auto begin = loop.now();
    EXPECT_EQ(pollAgainst(trickle), textOf(HttpErrorCode::timedOut));
    EXPECT_GE(loop.now() - begin, 850ms) << "a byte now and then is life, up to the deadline";
}

TEST_F(ServerClientOnTheWireTest, DropsARefusedTokenAndTakesNoAnswerFromElsewhere) {
    identity.storeDeviceToken(location.url, "TOKEN");
    server.willAnswer(StubServer::status(307, "Location: " + server.url("/other") + "\r\n"));
    EXPECT_EQ(outcomeOf(client.usage()), "server_3xx");
    server.willAnswer(StubServer::status(401, "WWW-Authenticate: Bearer\r\n"));
    server.willAnswer(
        StubServer::status(200, "", R"({"usage":{"used":1,"limit":5,"remaining":4,"can_transcribe":true}})"));
    EXPECT_EQ(finish(client.usage()).used, 1);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_NE(requests[1].find("Authorization: Bearer TOKEN\r\n"), std::string::npos);
    EXPECT_EQ(requests[2].find("Authorization"), std::string::npos);
    EXPECT_NE(requests[2].find("X-Device-ID: DEVICE\r\n"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::transcription
