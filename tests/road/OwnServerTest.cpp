#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "app/ServerChoice.h"
#include "platform/linux/posix/LocalServer.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "support/MemoryPreferences.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionError.h"

namespace tessivox {
namespace {

using namespace std::chrono_literals;
using Path = std::filesystem::path;
using nlohmann::json;

/// The processes that a process started and that still run.
std::vector<pid_t> childrenOf(pid_t pid) {
    const auto number = std::to_string(pid);
    std::ifstream list("/proc/" + number + "/task/" + number + "/children");
    std::vector<pid_t> children(std::istream_iterator<pid_t>(list), {});
    std::erase_if(children, [](pid_t child) {
        std::error_code ignored;  // what has ended has no program any more
        return std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/exe", ignored).empty();
    });
    return children;
}

/// Signals one process that this one, or its server, started; false if there is none. kill(2) takes other numbers for
/// groups, or for everybody.
[[nodiscard]] bool signalOne(pid_t pid, int signal) { return pid > 1 && ::kill(pid, signal) == 0; }

/// The client, over real connections, and the real server with an engine that hears what it is told to, in a home of
/// their own.
struct OwnServerTest : testing::QtTest {
    Path home = makeHome();
    posix::PosixFiles files{loop};
    testing::MemoryPreferences preferences;
    transcription::ServerSettings settings;
    std::unique_ptr<posix::LocalServer> server;
    qt::QtHttpClient http{"Tessivox/1.2"};
    transcription::DeviceIdentity identity{preferences, files, home / "token.json",
                                           [] { return std::string("DEVICE"); }};
    app::ServerChoice choice{[this] { return settings; },
                             {[this] { return server->baseURL(); }, [this] { return server->lastURL(); }}};
    transcription::ServerClient client{{http, choice, identity, "1.2", [] { return std::string("BOUNDARY"); }}};

    static Path makeHome() {
        std::string name = (std::filesystem::temp_directory_path() / "own-server-XXXXXX").string();
        if (!::mkdtemp(name.data())) throw std::runtime_error("mkdtemp");
        for (const auto* variable : {"XDG_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME"}) {
            const auto folder = Path(name) / variable;
            std::filesystem::create_directories(folder);
            std::filesystem::permissions(folder, std::filesystem::perms(0700));
            ::setenv(variable, folder.c_str(), 1);
        }
        return name;
    }
    OwnServerTest() { configure(0.2); }
    ~OwnServerTest() override {
        for (const auto pid : childrenOf(::getpid())) EXPECT_TRUE(signalOne(pid, SIGTERM));
        runUntil([&] { return childrenOf(::getpid()).empty(); });
        server.reset();
        std::filesystem::remove_all(home);
    }
    /// The server's next start finds an engine that works for so many seconds.
    void configure(double seconds) {
        const auto folder = home / "XDG_CONFIG_HOME" / "Tessivox";
        std::filesystem::create_directories(folder);
        const json values{{"testing", true}, {"engine", "fake"}, {"fake-seconds", seconds}, {"fake-text", "Hello."}};
        std::ofstream(folder / "backend.json") << values;
        connect();
    }
    void connect() {
        auto options = posix::localServerOptions(posix::processEnvironment());
        options.program = TESSIVOX_BACKEND;
        server = std::make_unique<posix::LocalServer>(loop, options);
    }
    std::string submit() {
        transcription::Upload upload{"a.m4a", std::make_shared<const std::string>(100'000, 'x')};
        return finish(client.sendSubmit(upload));
    }
    /// Asks until the task is neither pending nor processing, over passing failures.
    transcription::TaskStatusResponse outcomeOf(const std::string& task) {
        const auto end = loop.now() + 60s;
        while (loop.now() < end) {
            try {
                auto answer = finish(client.fetchTaskStatus(task));
                if (answer.status == "completed" || answer.status == "failed") return answer;
            } catch (const transcription::TranscriptionError& error) {
                if (!error.isTransient()) throw;
            }
            runUntil([] { return false; }, 50ms);
        }
        throw std::runtime_error("the task has no outcome");
    }
    /// -1 unless there is one.
    pid_t serverProcess() {
        const auto children = childrenOf(::getpid());
        return children.size() == 1 ? children.front() : -1;
    }
    /// The process that works on a job; it may take a moment to be there.
    pid_t workerProcess() {
        std::vector<pid_t> workers;
        runUntil([&] { return !(workers = childrenOf(serverProcess())).empty(); });
        return workers.empty() ? -1 : workers.front();
    }
};

TEST_F(OwnServerTest, TranscribesOverAServerThatStartsByItself) {
    EXPECT_TRUE(finish(client.usage()).canTranscribe);
    const auto token = [](transcription::ServerClient& asked) -> base::Task<int> {
        co_await asked.fetchDeviceToken();
        co_return 0;
    };
    finish(token(client));
    EXPECT_TRUE(identity.deviceToken(finish(choice.baseURL())));
    const auto outcome = outcomeOf(submit());
    EXPECT_EQ(outcome.status, "completed") << outcome.error.value_or("");
    EXPECT_NE(outcome.text.value_or("").find("Hello."), std::string::npos);
    EXPECT_TRUE(outcome.durationSeconds && outcome.provider && outcome.usage);
    EXPECT_FALSE(finish(client.sendSummarize(*outcome.text, std::nullopt)).summary.empty());
    EXPECT_NE(choice.shownBaseURL().find("/***/api"), std::string::npos);
}

TEST_F(OwnServerTest, KeepsATaskWhileServerWorkerAndStarterAreKilled) {
    configure(3);
    const auto task = submit();
    const auto worker = workerProcess();
    ASSERT_TRUE(signalOne(worker, SIGKILL));
    const auto first = serverProcess();
    ASSERT_TRUE(signalOne(first, SIGKILL));
    EXPECT_TRUE(runUntil([&] { return serverProcess() > 0 && serverProcess() != first; }));
    const auto url = finish(choice.baseURL());
    connect();  // as after the client's own end
    EXPECT_EQ(finish(choice.baseURL()), url) << "the server lives on while it has work";
    const auto outcome = outcomeOf(task);
    EXPECT_EQ(outcome.status, "completed") << outcome.error.value_or("");
    EXPECT_NE(outcome.text.value_or("").find("Hello."), std::string::npos);
}

TEST_F(OwnServerTest, FindsATaskAgainAtTheNextServer) {
    const auto task = submit();
    EXPECT_EQ(outcomeOf(task).status, "completed");
    const auto url = finish(choice.baseURL());
    ASSERT_TRUE(signalOne(serverProcess(), SIGTERM));
    EXPECT_TRUE(runUntil([&] { return childrenOf(::getpid()).empty(); }));
    EXPECT_EQ(outcomeOf(task).status, "completed");
    EXPECT_NE(finish(choice.baseURL()), url);
}

}  // namespace
}  // namespace tessivox
