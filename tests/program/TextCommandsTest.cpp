#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "program/ProgramHome.h"
#include "support/StubServer.h"

namespace tessivox::testing {
namespace {

/// With one recording, and a server that says what it is told to.
class TextCommandsTest : public ProgramHome {
protected:
    TextCommandsTest() {
        serverURL = server.url("/api");
        std::filesystem::create_directories(recordings);
        put("a talk.m4a", "sound");
    }
    void put(const std::string& name, const std::string& text) const { std::ofstream(recordings / name) << text; }

    struct Outcome {
        int status = -1;
        std::string output;
    };
    Outcome run(const Arguments& arguments) const {
        auto program = start(arguments);
        Outcome outcome;
        outcome.output = program.readAll();
        outcome.status = program.wait();
        return outcome;
    }
    void serverTakes() { server.willAnswer(json(R"({"task_id": "t", "status": "pending"})")); }
    void serverIsBusy() { server.willAnswer(json(R"({"task_id": "t", "status": "processing"})")); }
    void serverGives(const std::string& text) {
        const nlohmann::json usage{{"used", 1}, {"limit", 9}, {"remaining", 8}, {"can_transcribe", true}};
        const nlohmann::json reply{{"task_id", "t"},         {"status", "completed"}, {"text", text},
                                   {"duration_seconds", 60}, {"provider", "stub"},    {"usage", usage}};
        server.willAnswer(json(reply.dump()));
    }

    StubServer server;

private:
    static StubServer::Answer json(const std::string& body) {
        return StubServer::status(200, "Content-Type: application/json\r\n", body);
    }
};

TEST_F(TextCommandsTest, ShowsTheTextsBesideARecording) {
    put("a talk.txt", "[00:01] Speaker A: Good morning.\r\n[00:04] Speaker B: 1 < 2\n");
    put("a talk.summary.txt", "# Title: A talk\n\n## Summary\nThey **met**.\n");
    EXPECT_EQ(run({"show", "a talk"}).output, "[00:01] Speaker A: Good morning.\n[00:04] Speaker B: 1 < 2\n");
    EXPECT_EQ(run({"show", "a talk", "--summary"}).output, "A talk\n\nSummary\nThey met.\n");
    const auto captions = run({"show", (recordings / "a talk.txt").string(), "--format=vtt"});
    EXPECT_EQ(captions.status, 0);
    EXPECT_EQ(captions.output,
              "WEBVTT\n\n00:00:01.000 --> 00:00:04.000\n<v Speaker A>Good morning.\n\n"
              "00:00:04.000 --> 00:00:05.500\n<v Speaker B>1 &lt; 2\n\n");
    const auto known = nlohmann::json::parse(run({"show", "a talk.m4a", "--format", "json"}).output);
    EXPECT_EQ(known.at("title"), "a talk");
    EXPECT_EQ(known.at("segments").size(), 2U);

    std::filesystem::remove(recordings / "a talk.txt");
    const auto missing = run({"show", "a talk"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.output, "");
    EXPECT_NE(errors().find("tessivox transcribe '"), std::string::npos) << errors();
}

TEST_F(TextCommandsTest, TranscribesAtTheServerThatItIsGiven) {
    serverTakes();
    serverGives("[00:01] Speaker A: Hello.\n");
    const auto made = run({"transcribe", "a talk"});
    EXPECT_EQ(made.status, 0) << errors();
    EXPECT_EQ(made.output, (recordings / "a talk.txt").string() + "\n");
    EXPECT_EQ(textOf(recordings / "a talk.txt"), "[00:01] Speaker A: Hello.\n");
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(server.requests().front().find("POST /api/transcribe/submit "), 0U);

    EXPECT_EQ(run({"transcribe", "a talk"}).output, made.output);
    EXPECT_EQ(server.requests().size(), 2U) << "what is there is not made again";
}

TEST_F(TextCommandsTest, WhatAnInterruptionLeavesTheNextRunFetches) {
    serverTakes();
    serverIsBusy();
    auto waiting = start({"transcribe", "a talk"});
    const auto pending = home / "data/Tessivox/pending_transcriptions.json";
    ASSERT_TRUE(becomesTrue([&] { return server.requests().size() == 2; })) << errors();
    ::kill(waiting.pid(), SIGINT);
    EXPECT_EQ(waiting.readAll(), "");
    EXPECT_EQ(waiting.wait(), 1);
    EXPECT_NE(errors().find("fetches the transcript"), std::string::npos) << errors();
    ASSERT_TRUE(std::filesystem::exists(pending));

    serverGives("[00:01] Speaker A: Hello.\n");
    auto program = start({"run", "--headless"});
    EXPECT_TRUE(becomesTrue([&] { return std::filesystem::exists(recordings / "a talk.txt"); })) << errors();
    EXPECT_TRUE(becomesTrue([&] { return textOf(pending) == "[]"; })) << textOf(pending);
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(server.requests().size(), 3U) << "one upload";
}

TEST_F(TextCommandsTest, WhoRunsAllDayTakesOverTheWait) {
    std::filesystem::create_directories(home / "config/Tessivox");
    std::ofstream(home / "config/Tessivox/settings.json") << nlohmann::json{{"serverURL", serverURL}};
    serverURL.clear();
    auto program = start({"run", "--headless", "--verbose"});
    ASSERT_TRUE(becomesTrue([&] { return std::filesystem::exists(home / "run/Tessivox/running.lock"); }));
    serverTakes();
    serverIsBusy();
    serverGives("[00:01] Speaker A: Hello.\n");
    const auto left = run({"transcribe", "a talk"});
    EXPECT_EQ(left.status, 0) << errors();
    EXPECT_NE(errors().find("saves the transcript"), std::string::npos) << errors();
    EXPECT_TRUE(becomesTrue([&] { return std::filesystem::exists(recordings / "a talk.txt"); }));
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(TextCommandsTest, RefusesServersAndCertificatesThatItCannotTrust) {
    EXPECT_EQ(run({"usage", "--server", "http://example.org/api"}).status, 2);
    serverURL = "ftp://example.org";
    EXPECT_EQ(run({"usage"}).status, 1);
    EXPECT_NE(errors().find("TESSIVOX_SERVER"), std::string::npos) << errors();
    EXPECT_EQ(run({"record", "--transcribe", "--for", "1s"}).status, 1);
    EXPECT_NE(errors().find("TESSIVOX_SERVER"), std::string::npos) << "before it records: " << errors();
    serverURL = "https://127.0.0.1:9/api";
    EXPECT_EQ(run({"usage", "--ca-file", (home / "none.pem").string()}).status, 1);
    EXPECT_NE(errors().find("none.pem"), std::string::npos) << errors();
    EXPECT_TRUE(server.requests().empty());
}

}  // namespace
}  // namespace tessivox::testing
