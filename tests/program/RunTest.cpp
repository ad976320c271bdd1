#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/SoundServer.h"

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
                 "XDG_RUNTIME_DIR=" + runtime.string(), "PULSE_SERVER=unix:/nowhere", "LOG=" + (home / log).string()}};
    }
    std::string text(const std::string& log = "log") const {
        std::ifstream file(home / log);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool says(const std::string& part) const {
        for (int tries = 0; tries < 2000; ++tries) {
            if (text().find(part) != std::string::npos) return true;
            poll(nullptr, 0, 10);
        }
        return false;
    }
    int status(const Arguments& arguments, const std::string& log) const { return start(arguments, log).wait(); }

    Path home;
    Path runtime;
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

}  // namespace
}  // namespace tessivox::testing
