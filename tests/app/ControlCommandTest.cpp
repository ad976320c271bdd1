#include "app/ControlCommand.h"

#include <gtest/gtest.h>

#include <deque>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "app/FakeConsole.h"
#include "support/ManualRuntime.h"

namespace tessivox::app {
namespace {

using core::ProgramAnswer;
using core::ProgramFailure;
using core::ProgramRequest;
using core::ProgramStatus;
using Kind = ProgramFailure::Kind;

/// Answers with what the test put there, the last of it for ever.
class FakeProgram final : public core::RunningProgram {
public:
    std::vector<ProgramRequest> requests;
    std::deque<ProgramAnswer> answers{ProgramStatus{}};

    base::Task<ProgramAnswer> ask(ProgramRequest request) override {
        requests.push_back(request);
        auto answer = answers.front();
        if (answers.size() > 1) answers.pop_front();
        co_return answer;
    }
};

class ControlCommandTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    FakeProgram program;
    FakeConsole console;
    bool isSomebodyRunning = true;
    const ProgramStatus recording{true, false, true, 754.2, "/music/a\xff.m4a"};

    ControlParts parts() {
        return {time, program, [this] { return isSomebodyRunning; }, console};
    }
    ExitCode ask(ProgramRequest request, bool asJSON = false) {
        console.output.clear();
        console.messages.clear();
        return testing::await(time, controlCommand({request, asJSON}, parts()));
    }
    ExitCode askFailing(Kind kind) {
        program.answers = {ProgramFailure{kind, "It does not record: start it first.\x1b"}};
        return ask(ProgramRequest::stop);
    }
};

TEST_F(ControlCommandTest, TellsTheStatusForPeopleAndAsTheObjectThatItsHelpPromises) {
    EXPECT_EQ(ask(ProgramRequest::status), ExitCode::done);
    EXPECT_EQ(console.output, "Tessivox is ready; nothing is being recorded.\n");
    program.answers = {recording};
    ask(ProgramRequest::status);
    EXPECT_EQ(console.output, "Recording, 12:34 so far: /music/a\xff.m4a\nA call is going on.\n");
    ask(ProgramRequest::status, true);
    const auto object = nlohmann::json::parse(console.output);
    EXPECT_EQ(object.at("url"), "file:///music/a%FF.m4a");
    EXPECT_EQ(object.at("duration"), 754.2);
    EXPECT_TRUE(object.at("isRunning") == true && object.at("isRecording") == true && object.at("isPaused") == false &&
                object.at("isCallDetected") == true);
    EXPECT_TRUE(console.messages.empty());
}

TEST_F(ControlCommandTest, WritesOnlyThePathOfWhatWasSavedToStandardOutput) {
    program.answers = {ProgramStatus{false, false, false, 0, "/music/b.m4a"}};
    EXPECT_EQ(ask(ProgramRequest::stop), ExitCode::done);
    EXPECT_EQ(console.output, "/music/b.m4a\n");
    program.answers = {recording};
    EXPECT_EQ(ask(ProgramRequest::toggle), ExitCode::done);
    EXPECT_EQ(console.output, "");
    EXPECT_TRUE(console.said("Tessivox records."));
    program.answers = {ProgramStatus{}};
    EXPECT_EQ(ask(ProgramRequest::stop), ExitCode::nothingRecorded);
    EXPECT_EQ(program.requests, (std::vector{ProgramRequest::stop, ProgramRequest::toggle, ProgramRequest::stop}));
}

TEST_F(ControlCommandTest, FailsWithThePathAndASentenceWhenSecondsAreMissing) {
    program.answers = {ProgramStatus{false, false, false, 0, "/music/b.m4a", 2.25}};
    for (const auto request : {ProgramRequest::stop, ProgramRequest::toggle}) {
        EXPECT_EQ(ask(request), ExitCode::failed);
        EXPECT_EQ(console.output, "/music/b.m4a\n");
        EXPECT_TRUE(console.said("2.2 seconds could not be written and are missing from the recording"));
    }
}

TEST_F(ControlCommandTest, EndsWithAStatusOfItsOwnWhenNoneRuns) {
    isSomebodyRunning = false;
    for (const auto kind : {Kind::notRunning, Kind::noBus}) {
        program.answers = {ProgramFailure{kind, {}}};
        EXPECT_EQ(ask(ProgramRequest::status, true), ExitCode::notRunning);
        EXPECT_TRUE(console.said("start it with tessivox run --headless"));
        EXPECT_EQ(nlohmann::json::parse(console.output).at("isRunning"), false);
    }
    EXPECT_EQ(program.requests.size(), 2U);
}

TEST_F(ControlCommandTest, SaysWhatToDoAboutAProgramThatRunsAndDoesNotDoIt) {
    EXPECT_EQ(askFailing(Kind::refused), ExitCode::failed);
    EXPECT_TRUE(console.said("It does not record: start it first. "));
    EXPECT_EQ(askFailing(Kind::noAnswer), ExitCode::failed);
    EXPECT_TRUE(console.said("kill -KILL"));
    EXPECT_EQ(askFailing(Kind::ended), ExitCode::failed);
    EXPECT_TRUE(console.said("next start finishes"));
    EXPECT_EQ(askFailing(Kind::noBus), ExitCode::failed);
    EXPECT_TRUE(console.said("there is no session bus here"));
    EXPECT_EQ(askFailing(Kind::notRunning), ExitCode::failed);
    EXPECT_TRUE(console.said("is not on this session bus"));
}

TEST_F(ControlCommandTest, WaitsForAProgramThatHasJustBeenStarted) {
    program.answers = {ProgramFailure{Kind::notRunning, {}}, ProgramFailure{Kind::notRunning, {}}, recording};
    EXPECT_EQ(ask(ProgramRequest::start), ExitCode::done);
    EXPECT_EQ(program.requests.size(), 3U);
}

TEST_F(ControlCommandTest, SecondRunBringsTheFirstForwardOrTakesItsPlace) {
    bool isFree = false;
    const auto run = [&](ProgramAnswer answer) {
        console.messages.clear();
        program.answers = {std::move(answer)};
        return testing::await(time, reachFirst(parts(), [&] { return isFree; }));
    };
    EXPECT_EQ(run(ProgramStatus{}), ExitCode::done);
    EXPECT_EQ(program.requests, std::vector{ProgramRequest::activate});
    EXPECT_TRUE(console.said("it was asked to come forward"));
    EXPECT_EQ(run(ProgramFailure{Kind::noBus, {}}), ExitCode::done);
    EXPECT_EQ(console.messages, std::vector<std::string>{"Tessivox is already running."});
    EXPECT_EQ(run(ProgramFailure{Kind::noAnswer, {}}), ExitCode::failed);
    isFree = true;
    EXPECT_EQ(run(ProgramFailure{Kind::notRunning, {}}), ExitCode::done);
    EXPECT_TRUE(console.messages.empty());
}

}  // namespace
}  // namespace tessivox::app
