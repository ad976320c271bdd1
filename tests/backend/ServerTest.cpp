#include <arpa/inet.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <sstream>

#include "BackendTest.h"
#include "backend/engines/WavFile.h"
#include "support/StubServer.h"

namespace tessivox::testing {
namespace {

using Headers = BackendProcess::Headers;

class ServerTest : public BackendTest {};

TEST_F(ServerTest, TurnsAnUploadIntoATranscriptAndKeepsOnlyThat) {
    start({"--fake-text", "Grüße.", "--fake-length", "61"});
    const auto record = waitFor(submit(), "completed");
    EXPECT_NE(record.value("text", "").find("Speaker A: Grüße."), std::string::npos) << record;
    EXPECT_EQ(record.value("duration_seconds", 0), 61);
    EXPECT_EQ(record.value("provider", ""), "fake");
    EXPECT_EQ(record.at("usage").value("used", 0), 1);
    EXPECT_TRUE(record.at("usage").value("can_transcribe", false));
    EXPECT_FALSE(record.contains("confidence"));
    EXPECT_TRUE(holds([&] { return filesIn("uploads").empty(); }));
    EXPECT_TRUE(filesIn("sounds").empty());
}

TEST_F(ServerTest, CompletesSilenceWithABlankText) {
    start({"--fake-text", ""});
    EXPECT_EQ(waitFor(submit(), "completed").value("text", "none"), "");
}

TEST_F(ServerTest, KeepsUploadsByteByByteForTheirOwnerOnlyWhateverTheirName) {
    start({"--fake-decode", "1000"});
    std::string bytes = "\r\n--B0UN \r\n--B0UNE--\r\n";
    for (unsigned i = 0; i < 300000; ++i) bytes += static_cast<char>(i * 7919 >> 4);
    for (const auto* name : {"a;b.m4a", "a\"; name=\"x\".m4a", "back\\slash.m4a", "Grüße \xff.m4a"}) {
        const auto reply = server->upload(bytes, name);
        ASSERT_EQ(reply.status, 200) << name;
        const auto file = state() / "uploads" / json::parse(reply.body).value("task_id", "");
        EXPECT_EQ(contents(file), bytes) << name;
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    }
}

TEST_F(ServerTest, RefusesWhatIsNotForIt) {
    start();
    const auto& s = *server;
    const auto bare = s.target("").substr(1);
    auto wrong = bare;
    wrong[0] = wrong[0] == '0' ? '1' : '0';
    EXPECT_EQ(s.get("").status, 404);
    EXPECT_EQ(s.get("usage").status, 404);
    EXPECT_EQ(s.get(wrong + "/usage").status, 404);
    EXPECT_EQ(s.get("/usage/more").status, 404);
    EXPECT_EQ(s.get("/transcribe/status/").status, 404);
    EXPECT_EQ(s.get("/transcribe/status/../../devices.json").status, 404);
    EXPECT_EQ(s.post("/usage", "application/json", "{}").status, 404);
    EXPECT_EQ(s.get("/usage", {{"Host", "evil.example:80"}}).status, 403);
    EXPECT_EQ(s.get("/usage", {{"Origin", "http://127.0.0.1"}}).status, 403);
    EXPECT_EQ(s.post("/message", "text/plain", "{}").status, 415);
    EXPECT_EQ(s.post("/message", "application/json", "[]").status, 400);
    EXPECT_EQ(s.post("/message", "application/json", std::string(70000, ' ')).status, 413);
    EXPECT_EQ(s.post("/summarize", "application/json", "{}").status, 400);
    Headers many;
    for (int i = 0; i < 2000; ++i) many["X-" + std::to_string(i)] = std::string(50, 'x');
    EXPECT_EQ(s.get("/usage", many).status, 400);
    EXPECT_EQ(s.get("/usage", {{"X-Filler", std::string(100000, 'x')}}).status, 400);
    EXPECT_EQ(s.get("/usage").status, 200);
    restart({"--host", "Office-PC"});
    EXPECT_EQ(server->get("/usage", {{"Host", "office-pc:80"}}).status, 200);
    EXPECT_EQ(server->get("/usage", {{"Host", "OFFICE-PC"}}).status, 200);
    EXPECT_EQ(server->get("/usage").status, 403);
}

TEST_F(ServerTest, RefusesUploadsThatAreNotOneWholeFile) {
    start({"--max-upload", "1"});
    const auto& s = *server;
    const std::string type = "multipart/form-data; boundary=B0UND";
    const auto whole = BackendProcess::multipart("B0UND", "sound", "a.m4a");
    auto other = whole;
    other.replace(other.find("\"file\""), 6, "\"data\"");
    EXPECT_EQ(s.post("/transcribe/submit", "audio/m4a", "sound").status, 415);
    EXPECT_EQ(s.post("/transcribe/submit", type, whole.substr(0, whole.size() - 6)).status, 400);
    EXPECT_EQ(s.post("/transcribe/submit", type, other).status, 400);
    EXPECT_EQ(s.post("/transcribe/submit", type, whole.substr(0, whole.size() - 4) + whole.substr(7)).status, 400);
    EXPECT_EQ(s.upload("").status, 400);
    const auto large = s.upload(std::string(2 << 20, 'x'));
    EXPECT_EQ(large.status, 413);
    EXPECT_EQ(json::parse(large.body).value("code", ""), "too_large");
    // One that does not say how long it is.
    const auto body = BackendProcess::multipart("B0UND", std::string(2 << 20, 'x'), "a");
    std::ostringstream chunk;
    chunk << std::hex << body.size() << "\r\n" << body << "\r\n0\r\n\r\n";
    auto request = s.request("POST", "/transcribe/submit",
                             {{"Content-Type", type}, {"Transfer-Encoding", "chunked"}, {"Content-Length", ""}});
    request.erase(request.find("Content-Length: \r\n"), 18);
    EXPECT_EQ(exchange(s.port(), request + chunk.str()).status, 413);
    EXPECT_TRUE(filesIn("uploads").empty());
}

TEST_F(ServerTest, LeavesNothingOfAnUploadThatBreaksOff) {
    start();
    const int socket = connectTo(server->port());
    auto request = server->request("POST", "/transcribe/submit",
                                   {{"Content-Type", "multipart/form-data; boundary=B"}, {"Content-Length", "900000"}});
    request += BackendProcess::multipart("B", std::string(500000, 'x'), "a").substr(0, 400000);
    ASSERT_EQ(::send(socket, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    ASSERT_TRUE(holds([&] { return !filesIn("uploads").empty(); }));
    ::close(socket);
    EXPECT_TRUE(holds([&] { return filesIn("uploads").empty(); }));
}

TEST_F(ServerTest, TakesNoMoreJobsThanItMay) {
    start({"--max-jobs", "2", "--fake-decode", "1000"});
    submit();
    submit();
    const auto reply = server->upload("sound");
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(json::parse(reply.body).value("code", ""), "queue_full");
}

TEST_F(ServerTest, GivesEachDeviceATokenAndKnowsItAfterARestart) {
    start();
    const auto token = json::parse(server->get("/user/me", {{"X-Device-ID", "one"}}).body).value("token", "");
    const auto other = json::parse(server->get("/user/me", {{"X-Device-ID", "two"}}).body).value("token", "");
    ASSERT_FALSE(token.empty());
    EXPECT_NE(token, other);
    restart();
    const auto asked = [&](const std::string& device, const std::string& value) {
        return server->get("/usage", {{"X-Device-ID", device}, {"Authorization", "Bearer " + value}}).status;
    };
    EXPECT_EQ(asked("one", token), 200);
    EXPECT_EQ(asked("one", other), 401);
    EXPECT_EQ(asked("three", token), 401);
    EXPECT_EQ(server->get("/usage", {{"Authorization", token}}).status, 401);
    EXPECT_EQ(json::parse(server->get("/user/me", {{"X-Device-ID", "one"}}).body).value("token", ""), token);
}

TEST_F(ServerTest, KeepsMessagesForWhoRunsItAndSummarises) {
    start();
    for (const auto* path : {"/message", "/feedback", "/user/register", "/user/consent"}) {
        EXPECT_EQ(server->post(path, "application/json; charset=utf-8", R"({"text":"hällo"})").status, 200);
    }
    const auto log = state() / "messages.jsonl";
    EXPECT_EQ(std::filesystem::status(log).permissions(), std::filesystem::perms(0600));
    std::istringstream lines(contents(log));
    std::vector<std::string> kinds;
    for (std::string line; std::getline(lines, line);) kinds.push_back(json::parse(line).value("kind", ""));
    EXPECT_EQ(kinds, (std::vector<std::string>{"message", "feedback", "register", "consent"}));
    const auto summary = server->post("/summarize", "application/json", R"({"text":"[00:00] Speaker A: Hello."})");
    EXPECT_EQ(summary.status, 200);
    EXPECT_FALSE(json::parse(summary.body).value("summary", "").empty());
    EXPECT_TRUE(json::parse(summary.body).at("usage").contains("limit"));
}

TEST_F(ServerTest, TakesNoMoreSummariesAtATimeThanItMayAndAnswersThose) {
    start();
    const std::string body = R"({"text":"[00:00] Speaker A: Hello."})";
    const auto request = server->request("POST", "/summarize", {{"Content-Type", "application/json"}}, body);
    const auto head = request.substr(0, request.size() - body.size());
    std::vector<pollfd> clients;
    for (int i = 0; i < 12; ++i) {
        clients.push_back({connectTo(server->port()), POLLIN, 0});
        ASSERT_GT(::send(clients.back().fd, head.data(), head.size(), 0), 0);
    }
    const auto answered = [&] {
        ::poll(clients.data(), clients.size(), 0);
        return std::count_if(clients.begin(), clients.end(), [](const pollfd& fd) { return fd.revents != 0; });
    };
    EXPECT_TRUE(holds([&] { return answered() == 2; }));
    std::map<std::string, int> answers;
    for (const auto& client : clients) {
        if (client.revents == 0) ::send(client.fd, body.data(), body.size(), MSG_NOSIGNAL);
        std::string status(12, '\0');
        ::recv(client.fd, status.data(), status.size(), MSG_WAITALL);
        ++answers[status];
        ::close(client.fd);
    }
    EXPECT_EQ(answers, (std::map<std::string, int>{{"HTTP/1.1 200", 10}, {"HTTP/1.1 503", 2}}));
}

TEST_F(ServerTest, TriesOnceMoreAfterACrashOfItsWorker) {
    start({"--fake-crashes", "1"});
    EXPECT_EQ(waitFor(submit(), "completed").value("provider", ""), "fake");
    restart({"--fake-crashes", "2"});
    const auto record = waitFor(submit(), "failed");
    EXPECT_EQ(record.value("error", ""), "The speech engine crashed on this recording.");
    EXPECT_TRUE(holds([&] { return filesIn("uploads").empty(); }));
}

TEST_F(ServerTest, EndsAWorkerThatHangs) {
    start({"--fake-hangs", "2", "--least-time", "0.2", "--fake-length", "0"});
    EXPECT_EQ(waitFor(submit(), "failed").value("error", ""), "The speech engine took too long for this recording.");
}

TEST_F(ServerTest, AsksAServiceAsItsOptionsSay) {
    StubServer service;
    service.willAlwaysAnswer(StubServer::status(200, "", R"({"text": "Guten Tag."})"));
    start({"--engine", "openai", "--openai-url", service.url("/v1"), "--openai-model", "good", "--openai-language",
           "de", "--openai-format", "json"});
    std::vector<std::int16_t> samples(32000);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = i / 40 % 2 == 0 ? 9000 : -9000;
    const auto record = waitFor(submit(backend::wavBytes(samples)), "completed");
    EXPECT_NE(record.value("text", "").find("Guten Tag."), std::string::npos) << record << errors();
    EXPECT_EQ(record.value("provider", ""), "good");
    ASSERT_EQ(service.requests().size(), 1U);
    for (const auto* part : {"name=\"model\"\r\n\r\ngood\r\n", "name=\"response_format\"\r\n\r\njson\r\n",
                             "name=\"language\"\r\n\r\nde\r\n"}) {
        EXPECT_NE(service.requests().at(0).find(part), std::string::npos) << part;
    }
}

TEST_F(ServerTest, SpoilsAnswersAsOrdered) {
    start({"--fault", "usage:402*1,usage:503*1,usage:cut*1,usage:malformed*1,submit:500*1,status:none*1,status:401*1"});
    EXPECT_EQ(server->get("/usage").status, 402);
    EXPECT_EQ(server->get("/usage").status, 503);
    const auto cut = server->get("/usage");
    EXPECT_EQ(cut.status, 200);
    EXPECT_NE(cut.head.find("Content-Length: 7"), std::string::npos) << cut.head;
    EXPECT_LT(cut.body.size(), 60U);
    EXPECT_FALSE(json::accept(server->get("/usage").body));
    EXPECT_EQ(server->get("/usage").status, 200);
    EXPECT_EQ(server->upload("sound").status, 500);
    EXPECT_TRUE(filesIn("uploads").empty());
    const auto id = submit();
    EXPECT_EQ(server->get("/transcribe/status/" + id).status, 200);
    EXPECT_EQ(server->get("/transcribe/status/" + id).status, 401);
    EXPECT_EQ(server->get("/transcribe/status/" + id).status, 200);
}

TEST_F(ServerTest, TakesOrdersForFaultsOnlyInTests) {
    const auto order = [](const BackendProcess& from, const std::string& faults) {
        return from.post("/testing/faults", "application/json", json{{"faults", faults}}.dump()).status;
    };
    start({"--fault", "usage:402"});
    EXPECT_EQ(order(*server, "usage:503*1,submit:500"), 200);
    EXPECT_EQ(order(*server, "usage:200"), 400);
    EXPECT_EQ(server->get("/usage").status, 503);
    EXPECT_EQ(server->get("/usage").status, 200);
    EXPECT_EQ(order(*server, ""), 200);
    EXPECT_EQ(server->upload("sound").status, 200);
    BackendProcess users(TESSIVOX_BACKEND, {"--state", home / "users"}, home / "errors");
    ASSERT_TRUE(users.waitForUrl()) << errors();
    EXPECT_EQ(order(users, "usage:503"), 404);
    EXPECT_EQ(users.get("/usage").status, 200);
}

TEST_F(ServerTest, AnswersWhatIsUnderWayWhenItIsToldToEnd) {
    start({"--fault", "usage:slow=0.5"});
    const int socket = connectTo(server->port());
    const auto request = server->request("GET", "/usage", {{"Expect", "100-continue"}});
    ASSERT_GT(::send(socket, request.data(), request.size(), 0), 0);
    std::string permission(25, '\0');  // Now the server is at it.
    ASSERT_EQ(::recv(socket, permission.data(), permission.size(), MSG_WAITALL), 25);
    ASSERT_EQ(permission, "HTTP/1.1 100 Continue\r\n\r\n");
    const int idle = connectTo(server->port());
    EXPECT_EQ(server->stop(SIGTERM), 0);
    std::string answer(4096, '\0');
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::recv(socket, answer.data(), answer.size(), 0))));
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200")) << answer;
    ::close(socket);
    ::close(idle);
}

TEST_F(ServerTest, ServesFromAStateFolderAlone) {
    start();
    BackendProcess second(TESSIVOX_BACKEND, withDefaults({}), home / "errors");
    EXPECT_EQ(server->get("/usage").status, 200);
    EXPECT_EQ(server->stop(SIGTERM), 0);
    ASSERT_TRUE(second.waitForUrl()) << errors();
    EXPECT_EQ(second.get("/usage").status, 200);
}

TEST_F(ServerTest, NeverTellsItsSecret) {
    start();
    submit();
    server->get("/usage");
    const auto secret = server->target("").substr(1, 32);
    const auto process = Path("/proc") / std::to_string(server->pid());
    EXPECT_EQ(contents(process / "cmdline").find(secret), std::string::npos);
    EXPECT_EQ(contents(process / "environ").find(secret), std::string::npos);
    EXPECT_EQ(errors().find(secret), std::string::npos);
    EXPECT_FALSE(errors().empty());
}

}  // namespace
}  // namespace tessivox::testing
