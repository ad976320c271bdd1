#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "support/SoundServer.h"
#include "support/StubServer.h"

namespace tessivox::testing {
namespace {

using Path = std::filesystem::path;
using Arguments = std::vector<std::string>;

const Arguments kRun{"run", "--headless", "--verbose"};
const std::string kReady = "Sent: permission_state";

/// The program itself, in a home of its own, without a sound server.
class RunTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = "/tmp/tessivox-run-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        home = pattern;
        runtime = home / "run";
        std::filesystem::create_directory(runtime);
    }
    ~RunTest() override { std::filesystem::remove_all(home); }

    /// What it says on standard error goes to a file of that name.
    ChildProcess start(const Arguments& arguments, const std::string& log = "log") const {
        std::filesystem::remove(home / log);  // what an earlier one said is no answer of this one
        Arguments command{"sh", "-c", "exec \"$0\" \"$@\" 2>\"$LOG\"", TESSIVOX_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return {command,
                {"HOME=" + home.string(), "XDG_CONFIG_HOME=" + (home / "config").string(),
                 "XDG_DATA_HOME=" + (home / "data").string(), "XDG_STATE_HOME=" + (home / "state").string(),
                 "XDG_RUNTIME_DIR=" + runtime.string(), "PULSE_SERVER=" + soundServer,
                 "TESSIVOX_ANALYTICS_URL=" + analyticsURL, "TESSIVOX_CRASH_URL=", "LOG=" + (home / log).string()}};
    }
    std::string text(const std::string& log = "log") const {
        std::ifstream file(home / log);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static bool becomesTrue(const std::function<bool()>& condition) {
        for (int tries = 0; tries < 2000 && !condition(); ++tries) poll(nullptr, 0, 10);
        return condition();
    }
    bool says(const std::string& part) const {
        return becomesTrue([&] { return text().find(part) != std::string::npos; });
    }
    int status(const Arguments& arguments, const std::string& log) const { return start(arguments, log).wait(); }

    Path home;
    Path runtime;
    std::string soundServer = "unix:/nowhere";
    std::string analyticsURL;
};

TEST_F(RunTest, RunsOnceForAUserUntilASignalAsksForAnEnd) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        auto program = start(kRun);
        ASSERT_TRUE(says(kReady)) << text();
        EXPECT_EQ(status(kRun, "second"), 0);
        EXPECT_EQ(text("second"), "Tessivox is already running.\n");
        ::kill(program.pid(), signal);
        EXPECT_EQ(program.wait(), 0);
        const auto log = text();
        EXPECT_LT(log.find("Sent: app_launched"), log.find(kReady)) << log;
        EXPECT_LT(log.find(kReady), log.find("Sent: app_terminated")) << log;
        EXPECT_EQ(log.find("app_terminated"), log.rfind("app_terminated"));
    }
}

TEST_F(RunTest, StartsAgainAfterItWasKilled) {
    auto killed = start(kRun);
    ASSERT_TRUE(says(kReady)) << text();
    killed.stop(SIGKILL);
    auto program = start(kRun);
    ASSERT_TRUE(says(kReady)) << text();
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(RunTest, OtherCommandsRunBesideItAndSendNoSignals) {
    auto program = start(kRun);
    ASSERT_TRUE(says(kReady)) << text();
    for (const auto& command : std::vector<Arguments>{{"list", "--json"}, {"recover"}, {"devices"}}) {
        auto arguments = command;
        arguments.emplace_back("--verbose");
        auto other = start(arguments, "other");
        const auto output = other.readAll();
        EXPECT_EQ(other.wait(), command.front() == "devices" ? 1 : 0) << command.front();
        EXPECT_EQ(output, command.front() == "list" ? "[]\n" : "") << command.front();
        EXPECT_EQ(text("other").find("[Analytics]"), std::string::npos);
    }
}

TEST_F(RunTest, SaysWhatToDoWithoutAPlaceForItsLockOrWithoutWindows) {
    runtime = home / "none";
    EXPECT_EQ(status(kRun, "missing"), 1);
    EXPECT_NE(text("missing").find("unset the variable"), std::string::npos) << text("missing");
    runtime = "/proc";  // where nobody makes folders, not even root
    EXPECT_EQ(status(kRun, "unwritable"), 1);
    EXPECT_NE(text("unwritable").find("make the folder writable"), std::string::npos) << text("unwritable");
    EXPECT_EQ(status({"run"}, "windows"), 2);
    EXPECT_NE(text("windows").find("tessivox run --headless"), std::string::npos) << text("windows");
}

TEST_F(RunTest, CommandsOverTheLibraryEndWithASentenceForWhatIsNotThere) {
    for (const auto& command : std::vector<Arguments>{{"trash", "none"}, {"rename", "none", "some"}}) {
        EXPECT_EQ(status(command, "library"), 1);
        EXPECT_NE(text("library").find("There is no recording"), std::string::npos) << text("library");
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
    ASSERT_TRUE(says("input: ")) << text();
    const auto incomplete = home / "data/Tessivox/Incomplete";
    ASSERT_TRUE(becomesTrue([&] {
        for (const auto& entry : std::filesystem::directory_iterator(incomplete))
            if (entry.file_size() > 100000) return true;
        return false;
    }));
    recording.stop(SIGKILL);
    sound.kill();
    std::filesystem::create_directories(home / "config/Tessivox");
    std::ofstream(home / "config/Tessivox/settings.json") << R"({"lastRunAppVersion": "0.0.9"})";

    analyticsURL = collector.url("/in");
    auto program = start(kRun);
    ASSERT_TRUE(says("Sent: permission_state") && says("Sent: recording_recovered")) << text();
    sound.restart();
    ASSERT_TRUE(becomesTrue([&] { return text().find("permission_result") != text().rfind("permission_result"); }))
        << text();
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
    ASSERT_TRUE(says(kReady)) << text();
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
    const auto recordings = home / "Documents/TessivoxRecordings";
    std::filesystem::create_directories(recordings);
    for (const auto* name : {"a.m4a", "b\x1b[2J.m4a"}) std::ofstream(recordings / name) << "sound";
    EXPECT_EQ(status({"rename", "a", "b\x1b[2J"}, "taken"), 1);
    EXPECT_EQ(text("taken"), "There is already a recording \"b [2J\": choose another name.\n");
}

}  // namespace
}  // namespace tessivox::testing
