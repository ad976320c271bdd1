#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "faults/FaultTest.h"
#include "support/BackendProcess.h"

namespace tessivox::transcription {
namespace {

constexpr std::size_t kUpload = 300'000;  // bytes

using Arguments = std::vector<std::string>;

struct Case {
    const char* faults;
    Ending ending;
    int jobs = 1;  ///< that the server made of the uploads
    Patience patience{};
    bool hasOldToken = false;
};

const Case kSpoiltUploads[] = {
    {"submit:402", isOverQuota(), 0},
    {"submit:401", fails("provider_error", kNoHint, Task::gone, 2), 0, {}, true},
    {"submit:413", fails("provider_error", kNoHint, Task::gone), 0},
    {"submit:500", fails("server_5xx", kUnavailable, Task::gone, 3), 0},
    {"submit:501", fails("server_5xx", kUnavailable, Task::gone), 0},
    {"submit:502", fails("server_502", kUnavailable, Task::gone, 3), 0},
    {"submit:504*1,submit:402", isOverQuota(2), 0},
    {"submit:503*2", finishes(3)},
    {"submit:slow=0.6", fails("network", kNoConnection, Task::gone, 3), 3, Patience::forUploads(300ms)},
    {"submit:cut", fails("network", kNoConnection, Task::gone, 3), 3},
    {"submit:cut*1", finishes(2), 2},
    {"submit:malformed", fails("invalid_response", kNoHint, Task::gone)},
};

const Case kSpoiltPolls[] = {
    {"status:402", fails("server_4xx", kNoHint, Task::kept)},
    {"status:401", fails("server_4xx", kNoHint, Task::kept)},
    {"status:404", fails("task_lost", kNoHint, Task::gone)},
    {"status:502", fails("server_502", kUnavailable, Task::kept)},
    {"status:503", fails("server_5xx", kUnavailable, Task::kept)},
    {"status:503*3,status:cut*2", finishes(), 1, Patience::forOutages(20s)},
    {"status:slow=0.4", fails("network", kNoConnection, Task::kept), 1, Patience::forPolls(150ms)},
    {"status:cut", fails("network", kNoConnection, Task::kept)},
    {"status:malformed", fails("invalid_response", kNoHint, Task::kept)},
};

/// The transcription against the server that users have, which tells what became of each upload.
struct FaultyServerTest : FaultTest {
    Path log = home / "server.log";
    std::unique_ptr<testing::BackendProcess> server;

    void start(const Arguments& more) {
        Arguments arguments{"--state", home / "state", "--testing", "--verbose", "--engine", "fake"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        server.reset();
        server = std::make_unique<testing::BackendProcess>(TESSIVOX_BACKEND, arguments, log);
        ASSERT_TRUE(server->waitForUrl());
    }
    void order(const std::string& faults) {
        const auto body = nlohmann::json{{"faults", faults}}.dump();
        ASSERT_EQ(server->post("/testing/faults", "application/json", body).status, 200) << faults;
    }
    void expect(const Ending& ending, const Patience& patience = {}, bool hasOldToken = false) {
        EXPECT_EQ(run(server->url(), patience, kUpload, hasOldToken).text(), ending.text());
    }
    /// That a sane server transcribes what one that was not has left.
    void expectMended(const Ending& before) {
        const auto jobsBefore = jobs();
        if (before.transcript == Transcript::absent) {
            expect(mended(before));
            EXPECT_EQ(jobs() - jobsBefore, mended(before).uploads);
        }
        EXPECT_NE(transcriptText().find("hello"), std::string::npos) << transcriptText();
    }
    void expectAll(std::span<const Case> cases) {
        ASSERT_NO_FATAL_FAILURE(start({"--fake-text", "hello"}));
        for (const auto& c : cases) {
            SCOPED_TRACE(c.faults);
            makeRecording();
            const auto jobsBefore = jobs();
            order(c.faults);
            expect(c.ending, c.patience, c.hasOldToken);
            EXPECT_EQ(jobs() - jobsBefore, c.jobs);
            order("");
            expectMended(c.ending);
        }
        expectSecretIsHidden();
    }
    /// How many uploads have become jobs.
    int jobs() {
        const auto text = files.readAll(log, 1 << 20);
        int count = 0;
        for (auto at = text.find(" has been submitted."); at != text.npos; ++count) {
            at = text.find(" has been submitted.", at + 1);
        }
        return count;
    }
    void expectSecretIsHidden() {
        const auto secret = server->target("").substr(1, 32);
        EXPECT_EQ(files.readAll(log, 1 << 20).find(secret), std::string::npos);
        for (const auto& line : lines) EXPECT_EQ(line.find(secret), std::string::npos) << line;
    }
};

TEST_F(FaultyServerTest, SpoiltUploadsEndAsTheyShould) { expectAll(kSpoiltUploads); }

TEST_F(FaultyServerTest, SpoiltPollsEndAsTheyShould) { expectAll(kSpoiltPolls); }

TEST_F(FaultyServerTest, ATokenThatTheServerDoesNotKnowIsReplaced) {
    start({"--fake-text", "hello"});
    expect(finishes(2), {}, true);
    EXPECT_EQ(jobs(), 1);
}

TEST_F(FaultyServerTest, AnEngineThatHearsNothingOrCrashesEndsTheTask) {
    start({"--fake-text", ""});
    expect(findsNoSpeech());
    start({"--fake-text", "hello", "--fake-crashes", "2"});
    expect(fails("provider_error", kNoHint, Task::gone));
    start({"--fake-text", "hello", "--fake-crashes", "1"});
    expect(finishes());
    EXPECT_EQ(jobs(), 3);
}

TEST_F(FaultyServerTest, ATaskIsKeptWhenItTakesTooLongOrItsServerIsKilled) {
    const auto late = fails("timeout", kTimedOut, Task::kept);
    start({"--fake-seconds", "600"});
    expect(late, Patience::forTask(300ms));
    const auto outage = fails("network", kNoConnection, Task::kept, 0);
    whenProcessing = [&] { server->stop(SIGKILL); };
    expect(outage);
    const auto address = server->url();
    start({"--fake-text", "hello"});
    expectMended(outage);
    EXPECT_EQ(jobs(), 1);
    makeRecording();
    server.reset();
    EXPECT_EQ(run(address, {}, kUpload).text(), fails("network", kNoConnection, Task::gone, 3).text())
        << "where nobody serves any more";
}

}  // namespace
}  // namespace tessivox::transcription
