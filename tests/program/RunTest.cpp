#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "program/ProgramHome.h"
#include "support/StubServer.h"

namespace tessivox::testing {
namespace {

const Arguments kRun{"run", "--headless", "--verbose"};
const std::string kReady = "Sent: permission_state";

/// Without a sound server.
struct RunTest : ProgramHome {
    int status(const Arguments& arguments, const std::string& log) const { return start(arguments, log).wait(); }
};

TEST_F(RunTest, RunsOnceForAUserUntilASignalAsksForAnEnd) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        auto program = start(kRun);
        ASSERT_TRUE(says(kReady)) << errors();
        EXPECT_EQ(status(kRun, "second"), 0);
        EXPECT_EQ(errors("second"), "Tessivox is already running.\n");
        ::kill(program.pid(), signal);
        EXPECT_EQ(program.wait(), 0);
        const auto log = errors();
        EXPECT_LT(log.find("Sent: app_launched"), log.find(kReady)) << log;
        EXPECT_LT(log.find(kReady), log.find("Sent: app_terminated")) << log;
        EXPECT_EQ(log.find("app_terminated"), log.rfind("app_terminated"));
    }
}

TEST_F(RunTest, StartsAgainAfterItWasKilled) {
    auto killed = start(kRun);
    ASSERT_TRUE(says(kReady)) << errors();
    killed.stop(SIGKILL);
    auto program = start(kRun);
    ASSERT_TRUE(says(kReady)) << errors();
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(RunTest, OtherCommandsRunBesideItAndSendNoSignals) {
    auto program = start(kRun);
    ASSERT_TRUE(says(kReady)) << errors();
    for (const auto& command : std::vector<Arguments>{{"list", "--json"}, {"recover"}, {"devices"}}) {
        auto arguments = command;
        arguments.emplace_back("--verbose");
        auto other = start(arguments, "other");
        const auto output = other.readAll();
        EXPECT_EQ(other.wait(), command.front() == "devices" ? 1 : 0) << command.front();
        EXPECT_EQ(output, command.front() == "list" ? "[]\n" : "") << command.front();
        EXPECT_EQ(errors("other").find("[Analytics]"), std::string::npos);
    }
}

TEST_F(RunTest, SaysWhatToDoWithoutAPlaceForItsLockOrWithoutWindows) {
    runtime = home / "none";
    EXPECT_EQ(status(kRun, "missing"), 1);
    EXPECT_NE(errors("missing").find("unset the variable"), std::string::npos) << errors("missing");
    runtime = "/proc";  // where nobody makes folders, not even root
    EXPECT_EQ(status(kRun, "unwritable"), 1);
    EXPECT_NE(errors("unwritable").find("make the folder writable"), std::string::npos) << errors("unwritable");
    EXPECT_EQ(status({"run"}, "windows"), 2);
    EXPECT_NE(errors("windows").find("tessivox run --headless"), std::string::npos) << errors("windows");
}

TEST_F(RunTest, CommandsOverTheLibraryEndWithASentenceForWhatIsNotThere) {
    for (const auto& command : std::vector<Arguments>{{"trash", "none"}, {"rename", "none", "some"}}) {
        EXPECT_EQ(status(command, "library"), 1);
        EXPECT_NE(errors("library").find("There is no recording"), std::string::npos) << errors("library");
    }
}

/// "name key=value key=value" of each signal that was posted.
std::multiset<std::string> signalsIn(const std::vector<std::string>& requests) {
    std::multiset<std::string> all;
    for (const auto& request : requests) {
        const auto batch = nlohmann::json::parse(StubServer::bodyOf(request));
        for (const auto& signal : batch.at("signals")) {
            std::string line = signal.at("name");
            for (const auto& [key, value] : signal.at("parameters").items())
                line += " " + key + "=" + value.get<std::string>();
            all.insert(line);
        }
    }
    return all;
}

TEST_F(RunTest, SendsEachSignalOnceWithItsParametersToTheAddressItWasGiven) {
    StubServer collector;
    SoundServer sound(SoundServerKind::pulseAudio);
    soundServer = sound.address();
    auto recording = start({"record", "--verbose"});
    ASSERT_TRUE(says("input: ")) << errors();
    ASSERT_TRUE(reaches(100'000));
    recording.stop(SIGKILL);
    sound.kill();
    std::filesystem::create_directories(home / "config/Tessivox");
    std::ofstream(home / "config/Tessivox/settings.json") << R"({"lastRunAppVersion": "0.0.9"})";

    analyticsURL = collector.url("/in");
    auto program = start(kRun);
    ASSERT_TRUE(says("Sent: permission_state") && says("Sent: recording_recovered")) << errors();
    sound.restart();
    ASSERT_TRUE(becomesTrue([&] { return errors().find("permission_result") != errors().rfind("permission_result"); }))
        << errors();
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);

    auto next = start(kRun, "next");  // it sends what the first has left
    EXPECT_TRUE(becomesTrue([&] { return !collector.requests().empty(); }));
    ::kill(next.pid(), SIGTERM);
    EXPECT_EQ(next.wait(), 0);
    auto sent = signalsIn(collector.requests());
    const std::multiset<std::string> expected{
        "update_installed from=0.0.9 to=" TESSIVOX_VERSION,
        "app_launched",
        "permission_state mic=not_determined screen=not_determined",
        "recording_recovered count=1",
        "permission_result granted=true type=mic",
        "permission_result granted=true type=screen",
        "app_terminated",
    };
    EXPECT_TRUE(std::includes(sent.begin(), sent.end(), expected.begin(), expected.end()))
        << ::testing::PrintToString(sent);
    sent.erase("app_launched");  // that of the second start may be among them
    for (const auto& line : expected) EXPECT_LE(sent.count(line), 1U) << line;
}

TEST_F(RunTest, OpensNoConnectionToAnywhereByDefault) {
    auto program = start(kRun);
    ASSERT_TRUE(says(kReady)) << errors();
    std::set<std::string> sockets;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(program.pid()) + "/fd")) {
        std::error_code gone;
        const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
        if (target.starts_with("socket:[")) sockets.insert(target.substr(8, target.size() - 9));
    }
    for (const auto* table : {"tcp", "tcp6", "udp", "udp6"}) {
        std::ifstream rows(std::string("/proc/net/") + table);
        for (std::string word; rows >> word;) EXPECT_FALSE(sockets.contains(word)) << table << " " << word;
    }
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(RunTest, ANameThatWouldSteerTheTerminalIsToldWithoutItsControls) {
    std::filesystem::create_directories(recordings);
    for (const auto* name : {"a.m4a", "b\x1b[2J.m4a"}) std::ofstream(recordings / name) << "sound";
    EXPECT_EQ(status({"rename", "a", "b\x1b[2J"}, "taken"), 1);
    EXPECT_EQ(errors("taken"), "There is already a recording \"b [2J\": choose another name.\n");
}

}  // namespace
}  // namespace tessivox::testing
