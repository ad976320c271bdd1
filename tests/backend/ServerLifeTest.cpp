#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "BackendTest.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::testing {
namespace {

using posix::Descriptor;
using Headers = BackendProcess::Headers;

/// Kills and restarts, in the middle of everything.
class ServerLifeTest : public BackendTest {
protected:
    json job(const std::string& id) const {
        const auto document = json::parse(contents(state() / "jobs.json"));
        for (const auto& job : document.at("jobs")) {
            if (job.at("id") == id) return job;
        }
        return {};
    }
    pid_t worker() const {
        const auto pid = std::to_string(server->pid());
        const auto children = contents(Path("/proc") / pid / "task" / pid / "children");
        return children.empty() ? 0 : std::stoi(children);
    }
    static bool isAlive(pid_t pid) {
        const auto status = contents(Path("/proc") / std::to_string(pid) / "stat");
        return !status.empty() && status.find(") Z ") == std::string::npos;
    }
    std::string submitAndWaitForWorker() {
        const auto id = submit();
        EXPECT_EQ(waitFor(id, "processing").value("status", ""), "processing");
        EXPECT_TRUE(holds([&] { return worker() != 0; }));
        return id;
    }
    /// A client in the middle of an upload, beside those of so many jobs.
    Descriptor beginUpload(std::size_t jobs) const {
        Descriptor client(connectTo(server->port()));
        const Headers headers{{"Content-Type", "multipart/form-data; boundary=B"}, {"Content-Length", "900"}};
        const auto request = server->request("POST", "/transcribe/submit", headers, "--B\r\n");
        EXPECT_GT(::send(client.get(), request.data(), request.size(), 0), 0);
        EXPECT_TRUE(
            holds([&] { return std::filesystem::exists(state() / "uploads") && filesIn("uploads").size() > jobs; }));
        return client;
    }

    /// What a starter has and passes on.
    void prepareStarter() {
        socket = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* plain = reinterpret_cast<sockaddr*>(&address);
        ASSERT_EQ(::bind(socket.get(), plain, size), 0);
        ASSERT_EQ(::listen(socket.get(), 512), 0);
        ASSERT_EQ(::getsockname(socket.get(), plain, &size), 0);
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/0123456789abcdef0123456789abcdef/api";
        std::ofstream(home / "backend.json") << json{{"url", url}, {"pid", ::getpid()}};
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        pipeRead = Descriptor(ends[0]);
        pipeWrite = Descriptor(ends[1]);
    }
    void startInherited(Arguments more) {
        const Descriptor file(::open((home / "backend.json").c_str(), O_RDWR | O_CLOEXEC));
        ASSERT_EQ(::flock(file.get(), LOCK_EX | LOCK_NB), 0);
        more.insert(more.begin(), "--inherited");
        server = std::make_unique<BackendProcess>(TESSIVOX_BACKEND, withDefaults(more), home / "errors",
                                                  std::vector<int>{socket.get(), file.get(), pipeRead.get()});
        server->setUrl(url);
    }
    bool isLocked() const {
        const Descriptor file(::open((home / "backend.json").c_str(), O_RDWR | O_CLOEXEC));
        return ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
    }

    Descriptor socket;
    Descriptor pipeRead;
    Descriptor pipeWrite;
    std::string url;
};

TEST_F(ServerLifeTest, TakesAJobUpAgainAfterAKillAndItsWorkerDiesWithIt) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    const auto left = worker();
    EXPECT_EQ(server->stop(SIGKILL), -SIGKILL);
    EXPECT_TRUE(holds([&] { return !isAlive(left); }));
    restart();
    EXPECT_EQ(waitFor(id, "completed").value("status", ""), "completed");
    EXPECT_EQ(job(id).value("attempts", 0), 2);
}

TEST_F(ServerLifeTest, GivesUpAJobThatTwoServersDiedOf) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    server->stop(SIGKILL);
    restart({"--fake-decode", "1000"});
    EXPECT_TRUE(holds([&] { return worker() != 0; }));
    server->stop(SIGKILL);
    restart();
    EXPECT_EQ(status(id).value("error", ""), "The transcription was interrupted 2 times; start it again.");
    EXPECT_TRUE(filesIn("uploads").empty());
}

TEST_F(ServerLifeTest, AnOrderlyEndIsNoAttempt) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    const auto left = worker();
    EXPECT_EQ(server->stop(SIGTERM), 0);
    EXPECT_FALSE(isAlive(left));
    EXPECT_EQ(job(id).value("attempts", -1), 0);
    restart();
    EXPECT_EQ(waitFor(id, "completed").value("status", ""), "completed");
}

TEST_F(ServerLifeTest, AnEndThatAClientHoldsUpIsNoAttemptEither) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    const auto client = beginUpload(1);
    ::kill(server->pid(), SIGTERM);
    EXPECT_TRUE(holds([&] { return job(id).value("attempts", -1) == 0; }));
    EXPECT_TRUE(isAlive(server->pid()));
}

TEST_F(ServerLifeTest, AWorkerThatIsKilledIsReplaced) {
    start({"--fake-seconds", "2"});
    const auto id = submitAndWaitForWorker();
    const auto victim = worker();
    ASSERT_GT(victim, 0);
    ::kill(victim, SIGKILL);
    EXPECT_EQ(waitFor(id, "completed").value("status", ""), "completed");
    EXPECT_EQ(job(id).value("attempts", 0), 2);
}

TEST_F(ServerLifeTest, KeepsResultsForADayAndErasesThemThen) {
    start();
    const auto id = submit();
    waitFor(id, "completed");
    restart({"--clock-offset", "86000"});
    EXPECT_EQ(status(id).value("status", ""), "completed");
    restart({"--clock-offset", "90000"});
    EXPECT_EQ(status(id).value("status", ""), "404");
    EXPECT_TRUE(filesIn("results").empty());
}

TEST_F(ServerLifeTest, HoldsClientsThatWouldGiveUpWhileItWorks) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    const auto waiting = submit();
    restart({"--fake-decode", "1000", "--clock-offset", "2760"});
    EXPECT_EQ(status(id).value("status", ""), "503");
    EXPECT_EQ(status(waiting).value("status", ""), "503");
    server->stop(SIGTERM);
    restart({"--clock-offset", "2760"});
    EXPECT_EQ(waitFor(id, "completed").value("status", ""), "completed");
}

TEST_F(ServerLifeTest, SweepsWhatAKilledServerLeft) {
    start({"--fake-decode", "1000"});
    const auto id = submitAndWaitForWorker();
    server->stop(SIGKILL);
    for (const auto* folder : {"uploads", "sounds", "results"}) std::ofstream(state() / folder / "left") << "x";
    std::ofstream(state() / "sounds" / id) << "x";
    restart({"--fake-decode", "1000"});
    EXPECT_EQ(filesIn("uploads"), std::vector<Path>{state() / "uploads" / id});
    EXPECT_TRUE(filesIn("sounds").empty());
    EXPECT_TRUE(filesIn("results").empty());
}

TEST_F(ServerLifeTest, BeginsAnewWhereItsListIsDamaged) {
    std::filesystem::create_directories(state());
    std::ofstream(state() / "jobs.json") << R"({"transcribed":1,"jobs":[{"id":7}]})";
    start();
    EXPECT_EQ(waitFor(submit(), "completed").value("status", ""), "completed");
    EXPECT_TRUE(std::filesystem::exists(state() / "jobs.json.damaged-1"));
}

TEST_F(ServerLifeTest, ServesOnTheSocketOfItsStarterAndAReplacementGoesOnThere) {
    prepareStarter();
    startInherited({});
    EXPECT_EQ(server->get("/usage").status, 200);
    EXPECT_TRUE(isLocked());
    EXPECT_EQ(server->stop(SIGKILL), -SIGKILL);
    EXPECT_FALSE(isLocked());
    // A request that comes while nobody serves waits for the next server.
    const int waiting = connectTo(server->port());
    const auto request = server->request("GET", "/usage", {});
    ASSERT_GT(::send(waiting, request.data(), request.size(), 0), 0);
    startInherited({});
    std::string answer(4096, '\0');
    ASSERT_GT(::recv(waiting, answer.data(), answer.size(), 0), 0);
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200"));
    ::close(waiting);
}

TEST_F(ServerLifeTest, LeavesItsPlaceToAnotherWhileItStillAnswers) {
    prepareStarter();
    startInherited({"--fault", "usage:slow=1"});
    const int client = connectTo(server->port());
    const auto request = server->request("GET", "/usage", {{"Expect", "100-continue"}});
    ASSERT_GT(::send(client, request.data(), request.size(), 0), 0);
    std::string permission(25, '\0');  // Now the server is at it.
    ASSERT_EQ(::recv(client, permission.data(), permission.size(), MSG_WAITALL), 25);
    const auto first = std::move(server);
    ::kill(first->pid(), SIGTERM);
    EXPECT_TRUE(holds([&] { return !isLocked(); }));
    EXPECT_EQ(contents(home / "backend.json"), "");
    EXPECT_TRUE(isAlive(first->pid()));
    prepareStarter();
    startInherited({});
    EXPECT_EQ(server->get("/usage").status, 200) << "once the first has ended";
    EXPECT_EQ(first->wait(), 0);
    std::string answer(12, '\0');
    ASSERT_EQ(::recv(client, answer.data(), answer.size(), MSG_WAITALL), 12);
    EXPECT_EQ(answer, "HTTP/1.1 200");
    ::close(client);
}

TEST_F(ServerLifeTest, OutlivesItsStarterOnlyForItsWork) {
    prepareStarter();
    startInherited({"--idle-time", "0", "--fake-seconds", "1.5"});
    const auto id = submit();
    pipeWrite = Descriptor();
    EXPECT_EQ(waitFor(id, "completed").value("status", ""), "completed");
    EXPECT_EQ(server->wait(), 0);
    EXPECT_FALSE(isLocked());
}

TEST_F(ServerLifeTest, OutlivesItsStarterForARequestUnderWay) {
    prepareStarter();
    startInherited({"--idle-time", "0", "--fault", "usage:slow=1.5"});
    auto client = beginUpload(0);
    pipeWrite = Descriptor();
    EXPECT_EQ(server->get("/usage").status, 200);
    EXPECT_TRUE(isLocked());
    client = Descriptor();
    EXPECT_EQ(server->wait(), 0);
}

TEST_F(ServerLifeTest, DoesNotEndWhileItsStarterLives) {
    prepareStarter();
    startInherited({"--idle-time", "0"});
    EXPECT_EQ(waitFor(submit(), "completed").value("status", ""), "completed");
    BackendProcess bystander(TESSIVOX_BACKEND, {"--help"}, home / "errors");
    EXPECT_EQ(bystander.wait(), 0);
    EXPECT_TRUE(isAlive(server->pid()));
    EXPECT_EQ(server->get("/usage").status, 200);
}

TEST_F(ServerLifeTest, SaysWhatIsWrongWithItsOptions) {
    const auto says = [&](const Arguments& arguments) {
        BackendProcess process(TESSIVOX_BACKEND, arguments, home / "said");
        const auto code = process.wait();
        const auto text = contents(home / "said");
        std::filesystem::remove(home / "said");
        return std::to_string(code) + " " + text;
    };
    EXPECT_EQ(says({"--inherited"}),
              "1 --inherited is for Tessivox, which starts the server by itself; use --listen.\n");
    EXPECT_EQ(says({"--nonsense"}), "2 There is no option \"--nonsense\"; tessivox-backend --help lists them.\n");
    std::ofstream(home / "secret") << "0123456789abcdef0123456789abcdef";
    std::filesystem::permissions(home / "secret", std::filesystem::perms(0644));
    EXPECT_NE(says({"--secret-file", (home / "secret").string()}).find("chmod 600"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::testing
