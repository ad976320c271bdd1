#include "services/telemetry/TelemetrySinks.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/posix/CrashRecorder.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "support/MemoryPreferences.h"
#include "support/StubServer.h"

namespace tessivox::telemetry {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using testing::StubServer;

/// Everything that the program has, over real files and sockets; only its settings live in memory.
struct TelemetryDeliveryTest : testing::QtTest {
    fs::path state = [] {
        std::string name = "/tmp/tessivox-state-XXXXXX";
        return fs::path(::mkdtemp(name.data()));
    }();
    testing::MemoryPreferences preferences;
    ~TelemetryDeliveryTest() override { fs::remove_all(state); }

    /// One run of the program, from its start on.
    struct Run {
        posix::PosixFiles files;
        posix::CrashRecorder recorder;
        std::optional<qt::QtHttpClient> client;
        std::optional<TelemetrySinks> sinks;
        std::optional<CrashReporter> crashes;
        std::optional<Analytics> analytics;

        Run(TelemetryDeliveryTest& test, const Endpoints& endpoints)
            : files(test.loop), recorder(test.loop, files, TelemetrySinks::crashFolder(test.state)) {
            const TelemetrySinks::Surroundings surroundings{
                test.loop,
                files,
                posix::fillRandom,
                test.state,
                recorder,
                [] { return true; },
                [this]() -> base::HttpClient& { return client ? *client : client.emplace("Tessivox/1.2"); },
                [](const std::string& sentence) { ADD_FAILURE() << sentence; }};
            sinks.emplace(surroundings, endpoints);
            const BuildInfo build{"1.2", "34"};
            crashes.emplace(sinks->crashes(), test.preferences, posix::fillRandom, build, sinks->dsn());
            analytics.emplace(
                sinks->analytics(), test.preferences, [] { return true; }, build.version);
            crashes->start();
            analytics->start();
            analytics->track(AnalyticsEvent::appLaunched);
        }
    };
    void leaveAReport() const {
        fs::create_directories(TelemetrySinks::crashFolder(state));
        std::ofstream(TelemetrySinks::crashFolder(state) / "2026-01-01T00-00-00.000Z-7.txt")
            << "Tessivox report\ntype: SIGSEGV\nend:\n";
    }
    static std::vector<std::string> namesIn(const std::vector<std::string>& requests) {
        std::vector<std::string> names;
        for (const auto& request : requests) {
            const auto body = nlohmann::json::parse(StubServer::bodyOf(request));
            for (const auto& signal : body["signals"]) names.push_back(signal["name"]);
        }
        return names;
    }
    bool isQueueEmpty() const { return fs::file_size(state / "signals.jsonl") == 0; }
    using Names = std::vector<std::string>;
};

TEST_F(TelemetryDeliveryTest, SendsNothingUnlessAnAddressIsConfigured) {
    StubServer server;
    leaveAReport();
    {
        Run run(*this, {});
        run.analytics->track(AnalyticsEvent::recordingStarted, {{"source", "manual"}});
        run.analytics->reportFirstRecording();
        run.crashes->recordingStarted("manual");
        EXPECT_FALSE(run.client) << "there is nobody who could send";
    }
    EXPECT_FALSE(fs::exists(state / "signals.jsonl"));

    // The same with addresses does reach the server; signals at the latest with the next start.
    const Endpoints endpoints{server.url("/signals"), server.url("/reports")};
    { const Run first(*this, endpoints); }
    const Run second(*this, endpoints);
    EXPECT_TRUE(runUntil([&] { return server.requests().size() >= 2; }));
}

TEST_F(TelemetryDeliveryTest, BringsSignalsOnceAlsoAfterAStartWithoutAServer) {
    auto server = std::make_unique<StubServer>();
    const auto port = server->port();
    const Endpoints endpoints{server->url("/signals"), {}};
    server.reset();
    {
        Run run(*this, endpoints);
        run.analytics->track(AnalyticsEvent::settingsOpened);
    }
    {
        // What the first start left is tried at once, while nobody listens.
        const Run second(*this, endpoints);
        runUntil([] { return false; }, 200ms);
    }
    struct stat info {};
    ASSERT_EQ(::stat((state / "signals.jsonl").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);

    server = std::make_unique<StubServer>(port);
    server->willAnswer(StubServer::status(503));
    {
        Run run(*this, endpoints);
        ASSERT_TRUE(runUntil([&] { return server->requests().size() == 1; }));
    }
    EXPECT_FALSE(isQueueEmpty());
    {
        Run run(*this, endpoints);
        ASSERT_TRUE(runUntil([&] { return isQueueEmpty(); }));
    }
    EXPECT_EQ(namesIn({server->requests().back()}),
              (Names{"app_launched", "settings_opened", "app_launched", "app_launched", "app_launched"}));
    EXPECT_EQ(server->requests().size(), 2U);
    const Run last(*this, endpoints);
    EXPECT_EQ(server->requests().size(), 2U);
}

TEST_F(TelemetryDeliveryTest, BringsTheReportsOfEarlierRunsOnce) {
    StubServer server;
    leaveAReport();
    const auto report = TelemetrySinks::crashFolder(state) / "2026-01-01T00-00-00.000Z-7.txt";
    server.willAnswer(StubServer::status(500));
    {
        Run run(*this, {{}, server.url("/reports")});
        ASSERT_TRUE(runUntil([&] { return server.requests().size() == 1; }));
    }
    EXPECT_TRUE(fs::exists(report));
    {
        Run run(*this, {{}, server.url("/reports")});
        ASSERT_TRUE(runUntil([&] { return !fs::exists(report); }));
    }
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_TRUE(server.requests()[1].starts_with("POST /reports HTTP/1.1\r\n"));
    EXPECT_EQ(nlohmann::json::parse(StubServer::bodyOf(server.requests()[1]))["exceptions"][0]["type"], "SIGSEGV");
}

}  // namespace
}  // namespace tessivox::telemetry
