#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "program/ProgramHome.h"

namespace tessivox::testing {
namespace {

/// On a private sound server.
class ProgramTest : public ProgramHome {
protected:
    static void SetUpTestSuite() { server = new SoundServer(SoundServerKind::pulseAudio); }
    static void TearDownTestSuite() { delete server; }

    ProgramTest() { soundServer = server->address(); }

    static constexpr std::uintmax_t kOneSecond = 48000 * 8;
    static inline SoundServer* server = nullptr;
};

TEST_F(ProgramTest, SavesAfterTheTimeGivenAndSaysNothingButThePath) {
    const auto output = home / "a talk.M4A";
    auto program = start({"record", "--for", "1s", "--output", output.string(), "--quality", "low"});
    EXPECT_EQ(program.readAll(), output.string() + "\n");
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(errors(), "");
    EXPECT_GT(std::filesystem::file_size(output), 1000U);
    EXPECT_TRUE(temporaries().empty());
    EXPECT_FALSE(std::filesystem::exists(home / "config/Tessivox/settings.json"));
}

TEST_F(ProgramTest, StopsAndSavesOnEachSignalThatAsksForAnEnd) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        auto program = start({"record", "--output", (home / (std::to_string(signal) + ".m4a")).string()});
        ASSERT_TRUE(reaches(kOneSecond));
        ::kill(program.pid(), signal);
        EXPECT_EQ(program.readAll(), (home / (std::to_string(signal) + ".m4a\n")).string());
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(errors(), "");
    }
}

TEST_F(ProgramTest, GoesOnAfterAHangUpWhenStartedByNohup) {
    auto program = start({"record"}, "errors", "trap '' HUP; ");
    ASSERT_TRUE(reaches(kOneSecond));
    ::kill(program.pid(), SIGHUP);
    EXPECT_TRUE(reaches(temporarySize() + kOneSecond));
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ProgramTest, LeavesTheTemporaryFileAtASecondInterruptionForALaterRecovery) {
    auto program = start({"record"});
    ASSERT_TRUE(reaches(kOneSecond));
    // Both wait for the program when it goes on, so the second cannot come too late.
    for (const int signal : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) ::kill(program.pid(), signal);
    EXPECT_EQ(program.readAll(), "");
    EXPECT_EQ(program.wait(), 1);
    ASSERT_EQ(temporaries().size(), 1U);
    EXPECT_NE(errors().find(temporaries().front().string()), std::string::npos) << errors();

    auto recovery = start({"recover"});
    const auto printed = recovery.readAll();
    EXPECT_EQ(recovery.wait(), 0) << errors();
    const auto made = filesIn(recordings);
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(printed, made.front().string() + "\n");
    EXPECT_TRUE(temporaries().empty());
}

TEST_F(ProgramTest, RestoresAKilledRecordingAtTheNextStart) {
    auto recording = start({"record"});
    ASSERT_TRUE(reaches(kOneSecond));
    recording.stop(SIGKILL);
    ASSERT_EQ(temporaries().size(), 1U);
    auto program = start({"run", "--headless"});
    EXPECT_TRUE(says("Recovered interrupted recording\n")) << errors();
    EXPECT_EQ(filesIn(recordings).size(), 1U);
    EXPECT_TRUE(temporaries().empty());
    ::kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ProgramTest, SavesWholeFilesEvenIfNobodyReadsThePath) {
    const std::string closed = "exec >&-; ";
    const std::string readerGone = "mkfifo \"$HOME/pipe\"; : <\"$HOME/pipe\" & exec >\"$HOME/pipe\"; wait; ";
    for (const auto& prelude : {closed, readerGone}) {
        const auto output = home / (std::to_string(prelude.size()) + ".m4a");
        auto program = start({"record", "--output", output.string()}, "errors", prelude);
        ASSERT_TRUE(reaches(kOneSecond));
        if (prelude == closed) {
            const auto stream = "/proc/" + std::to_string(program.pid()) + "/fd/1";
            EXPECT_EQ(std::filesystem::read_symlink(stream), "/dev/null") << "a file of the recording could be there";
        }
        ::kill(program.pid(), SIGINT);
        EXPECT_EQ(program.wait(), 0) << errors();
        EXPECT_GT(std::filesystem::file_size(output), 1000U);
    }
}

TEST_F(ProgramTest, EndsWithTheStatusAndTheSentenceForEachMistake) {
    const Path locked = home / "file";
    std::ofstream(locked) << "x";
    struct Mistake {
        Arguments arguments;
        std::string address;
        int status;
        std::string sentence;
    };
    const auto& there = server->address();
    const std::vector<Mistake> mistakes{
        {{"record", "--fast"}, there, 2, "--fast"},
        {{"record", "--mic", "none", "--system", "off"}, there, 2, "Both sources are off"},
        {{"record", "--output", (home / "none/a.m4a").string()}, there, 1, "There is no folder"},
        {{"record", "--output", (locked / "a.m4a").string()}, there, 1, "There is no folder"},
        {{"record", "--mic", "Nobody"}, there, 1, "(mic)"},
        {{"record"}, "unix:/nowhere", 1, "start PipeWire or PulseAudio"},
        {{"devices", "--json"}, "unix:/nowhere", 1, "start PipeWire or PulseAudio"},
    };
    for (const auto& mistake : mistakes) {
        soundServer = mistake.address;
        auto program = start(mistake.arguments);
        EXPECT_EQ(program.readAll(), "");
        EXPECT_EQ(program.wait(), mistake.status) << mistake.sentence;
        const auto text = errors();
        EXPECT_NE(text.find(mistake.sentence), std::string::npos) << text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "more than one line: " << text;
    }
    EXPECT_TRUE(temporaries().empty());
}

/// The far end of a terminal in which the program runs.
class TerminalSession {
public:
    TerminalSession(const Arguments& arguments, const Arguments& environment) {
        const winsize size{24, 100, 0, 0};
        std::vector<char*> words;
        for (const auto& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (pid_ != 0) return;
        for (const auto& entry : environment) putenv(const_cast<char*>(entry.c_str()));
        execv(words[0], words.data());
        _exit(127);
    }
    ~TerminalSession() {
        if (pid_ > 0) ::kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
        ::close(terminal_);
    }

    void type(char key) { ASSERT_EQ(write(terminal_, &key, 1), 1); }
    /// Reads on until the text appears after what was found before.
    bool shows(const std::string& text) {
        for (std::size_t at = 0; (at = seen_.find(text, from_)) == std::string::npos;) {
            pollfd ready{terminal_, POLLIN, 0};
            char part[4096];
            if (poll(&ready, 1, 20000) <= 0) return false;
            const auto count = read(terminal_, part, sizeof part);
            if (count <= 0) return false;
            seen_.append(part, static_cast<std::size_t>(count));
        }
        from_ = seen_.find(text, from_) + text.size();
        return true;
    }
    bool echoes() const {
        termios mode{};
        return tcgetattr(terminal_, &mode) == 0 && (mode.c_lflag & ECHO) != 0;
    }
    int wait() {
        int status = 0;
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    const std::string& seen() const { return seen_; }

private:
    int terminal_ = -1;
    pid_t pid_ = -1;
    std::string seen_;
    std::size_t from_ = 0;
};

TEST_F(ProgramTest, ShowsTimeAndLevelsInATerminalAndTakesKeys) {
    const auto tone = server->play("micfeed", {"sine", "440"});
    TerminalSession session({TESSIVOX_PROGRAM, "record", "--system", "off"}, environment());
    ASSERT_TRUE(session.shows("Recording 00:01  mic [#")) << session.seen();
    EXPECT_EQ(session.seen().find("system"), std::string::npos);
    EXPECT_FALSE(session.echoes());
    session.type('p');
    ASSERT_TRUE(session.shows("Paused 00:0")) << session.seen();
    session.type('p');
    ASSERT_TRUE(session.shows("Recording 00:0")) << session.seen();
    session.type('q');
    ASSERT_TRUE(session.shows(".m4a\r\n")) << session.seen();
    EXPECT_EQ(session.wait(), 0);
    EXPECT_TRUE(session.echoes());
}

}  // namespace
}  // namespace tessivox::testing
