#include "backend/engines/CommandEngine.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

#include "backend/engines/EngineError.h"
#include "support/TestFolder.h"

namespace tessivox::backend {
namespace {

using namespace std::chrono_literals;
using Path = std::filesystem::path;

std::string contents(const Path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Whether it becomes true within a time that is long for any machine.
bool becomesTrue(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

struct CommandEngineTest : ::testing::Test {
    tessivox::testing::TestFolder folder;
    Path work = folder.path() / "work";
    std::vector<std::int16_t> samples = std::vector<std::int16_t>(32000, 7);

    void SetUp() override { std::filesystem::create_directory(work); }

    CommandSettings settings(const std::string& body, std::vector<std::string> arguments = {"{wav}"}) {
        arguments.insert(arguments.begin(), folder.script("speech", "#!/bin/sh\n" + body));
        return {std::move(arguments), work, 20s, 0};
    }
    std::vector<Utterance> run(const CommandSettings& settings) {
        return CommandEngine(settings).transcribe({samples}, {});
    }
    std::string failureOf(const CommandSettings& settings) {
        try {
            run(settings);
        } catch (const EngineError& error) {
            return error.description();
        }
        return "no failure";
    }
    bool isEmptied() const { return std::filesystem::is_empty(work); }
    std::string note(const std::string& name) const { return (folder.path() / name).string(); }

    /// A process whose number a script noted is gone.
    bool isGone(const std::string& name) const {
        const auto number = contents(note(name));
        return number.ends_with('\n') && ::kill(static_cast<pid_t>(std::stol(number)), 0) != 0;
    }
};

TEST_F(CommandEngineTest, HandsTheSoundOverAndReadsStandardOutput) {
    // The exact name of a file with blanks and shell characters comes through, for no shell reads it.
    const auto command = settings("cp \"$2\" " + note("copy.wav") + "; stat -c %a \"$2\" \"$(dirname \"$2\")\" >" +
                                      note("modes") + "; printf '%s' \"$1\"; cat 1>&2",
                                  {"a; b $(c) \"", "{wav}"});
    double done = 0;
    const auto utterances = CommandEngine(command).transcribe({samples}, [&](double fraction) { done = fraction; });
    ASSERT_EQ(utterances.size(), 1U);
    EXPECT_EQ(utterances[0].text, "a; b $(c) \"");
    EXPECT_EQ(utterances[0].end, 2);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(contents(note("copy.wav")).size(), 44U + 64000U);
    EXPECT_EQ(contents(note("modes")), "600\n700\n");
    EXPECT_TRUE(isEmptied());
    EXPECT_EQ(CommandEngine(command).name(), "speech");
    EXPECT_TRUE(CommandEngine(command).transcribe({}, {}).empty());
}

TEST_F(CommandEngineTest, ReadsTheFileThatTheProgramMade) {
    const std::vector<std::string> arguments = {"-of={out}", "{wav}"};
    const auto srt = run(settings(
        "o=${1#-of=}; echo no >$o.txt; printf '1\\n00:00:01,000 --> 00:00:01,500\\nHi\\n' >$o.srt", arguments));
    ASSERT_EQ(srt.size(), 1U);
    EXPECT_EQ(srt[0].text, "Hi");
    EXPECT_EQ(srt[0].start, 1);
    EXPECT_TRUE(run(settings("echo noise; : >${1#-of=}.srt", arguments)).empty());
    EXPECT_EQ(failureOf(settings("echo noise", arguments)),
              "The speech program \"speech\" made no file whose name begins with {out}. Check the command's options.");
    EXPECT_TRUE(isEmptied());
}

TEST_F(CommandEngineTest, TellsHowTheProgramFailed) {
    EXPECT_EQ(failureOf(settings("echo first >&2; echo 'error: no model \"x\".' >&2; exit 3")),
              "The speech program \"speech\" failed with status 3: error: no model \"x\".");
    EXPECT_EQ(failureOf(settings("kill -SEGV $$")), "The speech program \"speech\" was ended by signal 11.");
    auto missing = settings("");
    missing.arguments[0] = "/nowhere/whisper-cli";
    EXPECT_EQ(
        failureOf(missing),
        "Cannot start the speech program \"/nowhere/whisper-cli\": No such file or directory. Check the command's "
        "first word.");
    EXPECT_THROW(CommandEngine({{"whisper-cli"}, work}), EngineError);
    EXPECT_THROW(CommandEngine({{}, work}), EngineError);
    EXPECT_TRUE(isEmptied());
}

TEST_F(CommandEngineTest, EndsAProgramThatHangsWithAllItStarted) {
    auto hanging = settings("trap '' TERM INT; sleep 600 & echo $! >" + note("child") + "; echo 50% >&2; sleep 600");
    hanging.leastTime = 300ms;
    EXPECT_NE(failureOf(hanging).find("did not finish within 0 s and was ended"), std::string::npos);
    EXPECT_TRUE(becomesTrue([&] { return isGone("child"); }));
    EXPECT_TRUE(isEmptied());
}

TEST_F(CommandEngineTest, LeavesNobodyBehindThatHoldsItsOutput) {
    const auto utterances = run(settings("sleep 600 & echo $! >" + note("child") + "; echo done"));
    ASSERT_EQ(utterances.size(), 1U);
    EXPECT_EQ(utterances[0].text, "done");
    EXPECT_TRUE(becomesTrue([&] { return isGone("child"); }));
}

TEST_F(CommandEngineTest, BoundsWhatAProgramWrites) {
    EXPECT_EQ(failureOf(settings("exec yes")),
              "The speech program \"speech\" wrote more than 64 MiB and was ended. Check its options.");
    EXPECT_NE(failureOf(settings("exec yes >$1.more")).find("wrote more than 64 MiB"), std::string::npos);
    EXPECT_EQ(run(settings("yes | head -c 3000000 >&2; echo words")).size(), 1U);
    EXPECT_TRUE(isEmptied());
}

TEST_F(CommandEngineTest, KeepsKeysFromTheProgram) {
    ::setenv("TESSIVOX_OPENAI_KEY", "sk-secret", 1);
    const auto utterances =
        run(settings("env | grep -c -e TESSIVOX_ -e secret; [ -d \"$TMPDIR\" ] && echo $(ls $TMPDIR)"));
    ::unsetenv("TESSIVOX_OPENAI_KEY");
    ASSERT_EQ(utterances.size(), 2U);
    EXPECT_EQ(utterances[0].text, "0");
    EXPECT_EQ(utterances[1].text, "sound.wav");
}

TEST_F(CommandEngineTest, EndsTheProgramWhenItsOwnProcessIsKilled) {
    const auto hanging = settings("trap '' TERM; sleep 600 & echo $! >" + note("child") + "; echo $$ >" +
                                  note("program") + "; sleep 600");
    const pid_t worker = ::fork();
    if (worker == 0) {
        try {
            run(hanging);
        } catch (...) {
        }
        ::_exit(0);
    }
    ASSERT_TRUE(becomesTrue([&] { return contents(note("program")).ends_with('\n'); }));
    ::kill(worker, SIGKILL);
    ::waitpid(worker, nullptr, 0);
    EXPECT_TRUE(becomesTrue([&] { return isGone("program") && isGone("child"); }));
    EXPECT_TRUE(becomesTrue([&] { return isEmptied(); }));
}

}  // namespace
}  // namespace tessivox::backend
