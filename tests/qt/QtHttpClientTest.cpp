#include "platform/linux/qt/QtHttpClient.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "qt/QtTest.h"
#include "support/StubServer.h"

namespace tessivox::qt {
namespace {

using namespace std::chrono_literals;
using base::HttpErrorCode;
using testing::StubServer;

struct QtHttpClientTest : testing::QtTest {
    StubServer server;
    std::unique_ptr<QtHttpClient> client = std::make_unique<QtHttpClient>("Tessivox/1.2");

    base::HttpRequest request(const std::string& method = "GET") const {
        base::HttpRequest made;
        made.method = method;
        made.url = server.url("/path?q=a%20b");
        made.timeout = 10s;
        return made;
    }
    base::HttpResponse ask(base::HttpRequest asked) { return finish(client->send(std::move(asked))); }
    /// How the request fails; 0 if it does not.
    int failureOf(base::HttpRequest asked) {
        try {
            ask(std::move(asked));
            return 0;
        } catch (const base::HttpError& error) {
            EXPECT_TRUE(error.description().ends_with(".")) << error.description();
            EXPECT_EQ(error.description().find("settings"), std::string::npos) << "an address may come from elsewhere";
            return error.code();
        }
    }
    int failureOf(base::HttpRequest asked, StubServer::Answer answer) {
        server.willAnswer(std::move(answer));
        return failureOf(std::move(asked));
    }
};

TEST_F(QtHttpClientTest, GivesTheAnswerWhateverItsStatus) {
    for (const int status : {200, 201, 302, 307, 400, 401, 402, 404, 409, 418, 422, 429, 500, 502, 503}) {
        server.willAnswer(StubServer::status(
            status, "X-Kind: a\r\nLocation: https://example.org/\r\nWWW-Authenticate: Basic realm=\"x\"\r\n", "body"));
        const auto response = ask(request("POST"));
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.body, "body");
        EXPECT_NE(std::ranges::find(response.headers, std::pair<std::string, std::string>("X-Kind", "a")),
                  response.headers.end());
    }
    EXPECT_EQ(server.requests().size(), 15U) << "redirects are not followed, passwords not tried";
}

TEST_F(QtHttpClientTest, SendsExactlyWhatItIsGiven) {
    auto asked = request("POST");
    asked.headers = {{"Content-Type", "application/json"}, {"X-Device-ID", "D"}};
    asked.body = std::string("\0{\r\n\r\n}\xff", 8);
    ask(asked);
    asked.headers = {{"user-agent", "Other"}};
    asked.body = "begin";
    asked.rest = {std::make_shared<const std::string>(5'000'000, 'x'), std::make_shared<const std::string>("end")};
    ask(asked);
    ask(request("DELETE"));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_TRUE(requests[0].starts_with("POST /path?q=a%20b HTTP/1.1\r\n")) << requests[0];
    for (const auto* line : {"\r\nContent-Type: application/json\r\n", "\r\nX-Device-ID: D\r\n",
                             "\r\nUser-Agent: Tessivox/1.2\r\n", "\r\nContent-Length: 8\r\n"}) {
        EXPECT_NE(requests[0].find(line), std::string::npos) << line << requests[0];
    }
    EXPECT_EQ(StubServer::bodyOf(requests[0]), std::string("\0{\r\n\r\n}\xff", 8));
    EXPECT_EQ(requests[1].find("Tessivox/"), std::string::npos);
    EXPECT_TRUE(StubServer::bodyOf(requests[1]) == "begin" + std::string(5'000'000, 'x') + "end");
    EXPECT_TRUE(requests[2].starts_with("DELETE ")) << requests[2];
}

TEST_F(QtHttpClientTest, NamesWhatWentWrong) {
    const auto number = [](HttpErrorCode code) { return static_cast<int>(code); };
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n";
    EXPECT_EQ(failureOf(request(), {head + "half", false}), number(HttpErrorCode::connectionLost));
    const auto before = server.requests().size();
    auto upload = request("POST");
    upload.body = "body";
    EXPECT_EQ(failureOf(upload, {"", false}), number(HttpErrorCode::connectionLost));
    EXPECT_EQ(failureOf(upload, {"HTTP/1.1 200", false}), number(HttpErrorCode::connectionLost));
    EXPECT_EQ(server.requests().size(), before + 2) << "none is sent twice";

    auto secure = request("POST");
    secure.url.insert(4, "s");
    EXPECT_EQ(failureOf(secure), number(HttpErrorCode::noSecureConnection));

    auto refused = request();
    {
        const StubServer gone;
        refused.url = gone.url();
    }
    EXPECT_EQ(failureOf(refused), number(HttpErrorCode::refused));
    for (const auto* url : {"", "/path", "file:///etc/passwd", "http://", "http://exa mple.org/", "data:,x"}) {
        auto bad = request();
        bad.url = url;
        EXPECT_EQ(failureOf(bad), number(HttpErrorCode::badAddress)) << url;
    }
}

TEST_F(QtHttpClientTest, GivesUpOnAServerThatIsSilentOrTooSlow) {
    const auto timedOut = static_cast<int>(HttpErrorCode::timedOut);
    ask(request());  // so that what Qt starts with the first request takes none of the time
    auto silent = request("POST");
    silent.timeout = 200ms;
    EXPECT_EQ(failureOf(silent, {"", true}), timedOut);
    EXPECT_EQ(failureOf(silent, {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf", true}), timedOut);
    auto trickle = StubServer::status(200, "", "a byte now and then");
    trickle.pace = 30ms;
    EXPECT_EQ(failureOf(silent, trickle), 0) << "is life";
    auto slow = request("POST");
    slow.deadline = 200ms;
    EXPECT_EQ(failureOf(slow, {"", true}), timedOut);
    EXPECT_TRUE(runUntil([&] { return server.hangUps() + 2 == server.requests().size(); }));
}

TEST_F(QtHttpClientTest, TakesNoMoreThanItsLimit) {
    const std::string most(base::HttpClient::kMostBytes, 'x');
    server.willAnswer(StubServer::status(200, "", most));
    EXPECT_EQ(ask(request()).body.size(), most.size());
    EXPECT_EQ(failureOf(request(), StubServer::status(200, "", most + "x")), static_cast<int>(HttpErrorCode::tooLarge));
}

TEST_F(QtHttpClientTest, GoesThroughTheSystemsProxyButNeverToThisMachine) {
    StubServer proxy;
    for (const auto* name : {"http_proxy", "https_proxy"}) ::setenv(name, proxy.url().c_str(), 1);
    ::unsetenv("no_proxy");
    auto elsewhere = request();
    elsewhere.url = "http://tessivox.invalid/path";
    proxy.willAnswer(StubServer::status(200, "", "by proxy"));
    EXPECT_EQ(ask(elsewhere).body, "by proxy");
    elsewhere.url = "https://tessivox.invalid/path";
    elsewhere.headers = {{"Authorization", "Bearer TOKEN"}};
    proxy.willAnswer(StubServer::status(403));
    EXPECT_NE(failureOf(elsewhere), 0);
    ask(request());
    for (const auto* name : {"http_proxy", "https_proxy"}) ::unsetenv(name);
    EXPECT_EQ(server.requests().size(), 1U);
    const auto requests = proxy.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_TRUE(requests[0].starts_with("GET http://tessivox.invalid/path HTTP/1.1\r\n")) << requests[0];
    EXPECT_TRUE(requests[1].starts_with("CONNECT tessivox.invalid:443 HTTP/1.1\r\n")) << requests[1];
    EXPECT_EQ(requests[1].find("TOKEN"), std::string::npos) << "which only the server may see";
}

TEST_F(QtHttpClientTest, HangsUpWhenTheTaskIsDestroyed) {
    server.willAnswer({"", true});
    std::optional<base::HttpResponse> result;
    std::exception_ptr error;
    {
        base::TaskScope scope(loop);
        scope.start(testing::keepResult(client->send(request("POST")), result, error));
        ASSERT_TRUE(runUntil([&] { return server.requests().size() == 1; }));
        EXPECT_EQ(server.hangUps(), 0U);
    }
    EXPECT_TRUE(runUntil([&] { return server.hangUps() == 1; }));
    EXPECT_FALSE(result || error);
    EXPECT_EQ(ask(request()).status, 200);
}

TEST_F(QtHttpClientTest, CancelsWhatStillRunsWhenItGoesItself) {
    server.willAnswer({"", true});
    std::optional<base::HttpResponse> result;
    std::exception_ptr error;
    base::TaskScope scope(loop);
    scope.start(testing::keepResult(client->send(request("POST")), result, error));
    ASSERT_TRUE(runUntil([&] { return server.requests().size() == 1; }));
    client.reset();
    ASSERT_TRUE(runUntil([&] { return scope.isIdle(); }));
    ASSERT_TRUE(error);
    try {
        std::rethrow_exception(error);
    } catch (const base::HttpError& cancelled) {
        EXPECT_EQ(cancelled.code(), static_cast<int>(HttpErrorCode::cancelled));
    }
    EXPECT_TRUE(runUntil([&] { return server.hangUps() == 1; }));
}

}  // namespace
}  // namespace tessivox::qt
