#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/Completion.h"
#include "base/Error.h"
#include "platform/linux/gio/BusThread.h"
#include "platform/linux/gio/ControlService.h"
#include "platform/linux/posix/EventLoop.h"
#include "program/ProgramHome.h"
#include "support/PrivateBus.h"
#include "support/TurnLoop.h"

namespace tessivox::testing {
namespace {

using core::ProgramRequest;
using core::ProgramStatus;

/// The commands as they are given, to a stand-in for the running program.
class ControlTest : public ProgramHome {
protected:
    struct Outcome {
        int status = -1;
        std::string output;
        std::string said;
    };

    ControlTest() { sessionBus = session.address(); }

    PrivateBus session{home};
    posix::EventLoop loop;
    gio::BusThread bus{loop, {session.address(), ""}};
    ProgramStatus status;
    std::vector<ProgramRequest> requests;
    std::optional<base::Completion<bool>> gate;
    std::unique_ptr<gio::ControlService> service;

    base::Task<ProgramStatus> carryOut(ProgramRequest request) {
        requests.push_back(request);
        if (gate) co_await *gate;
        if (request == ProgramRequest::pause) throw base::Error("test", 1, "Nothing is being recorded.");
        if (request == ProgramRequest::start) status = {true, false, false, 3, "/music/a.m4a"};
        if (request == ProgramRequest::stop) status.isRecording = false;
        co_return status;
    }
    void serve() {
        service = std::make_unique<gio::ControlService>(
            bus, gio::ControlService::Handlers{[this](ProgramRequest request) { return carryOut(request); },
                                               [this] { return status; },
                                               {},
                                               [](const std::string& sentence) { ADD_FAILURE() << sentence; }});
    }
    bool ends(const ChildProcess& child) {
        return runUntil(loop, [&] {
            siginfo_t info{};
            return ::waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                   info.si_pid == child.pid();
        });
    }
    Outcome run(const Arguments& arguments) {
        auto child = start(arguments);
        if (!ends(child)) return {};
        Outcome outcome;
        outcome.output = child.readAll();
        outcome.status = child.wait();
        outcome.said = errors();
        return outcome;
    }
};

TEST_F(ControlTest, CommandsReachTheProgramThatRuns) {
    serve();
    ASSERT_TRUE(runUntil(loop, [&] { return run({"status"}).status == 0; }));
    EXPECT_EQ(run({"start"}).status, 0);
    const auto told = run({"status", "--json"});
    EXPECT_EQ(nlohmann::json::parse(told.output).at("path"), "/music/a.m4a");
    const auto refused = run({"pause"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.said, "Nothing is being recorded.\n");
    const auto stopped = run({"stop"});
    EXPECT_EQ(stopped.status, 0);
    EXPECT_EQ(stopped.output, "/music/a.m4a\n");
    EXPECT_EQ(requests, (std::vector{ProgramRequest::start, ProgramRequest::pause, ProgramRequest::stop}));
}

TEST_F(ControlTest, CtrlCEndsTheWaitAtOnceAndNotTheWork) {
    serve();
    ASSERT_TRUE(runUntil(loop, [&] { return run({"status"}).status == 0; }));
    gate.emplace();
    auto child = start({"start"});
    ASSERT_TRUE(runUntil(loop, [&] { return requests.size() == 1; }));
    ::kill(child.pid(), SIGINT);
    ASSERT_TRUE(ends(child));
    EXPECT_EQ(child.wait(), 1);
    gate->succeed(true);
    EXPECT_TRUE(runUntil(loop, [&] { return status.isRecording; }));
}

TEST_F(ControlTest, WithoutARunningProgramItSaysSoAndSecondRunsFindTheFirst) {
    const auto none = run({"toggle"});
    EXPECT_EQ(none.status, 3);
    EXPECT_NE(none.said.find("tessivox run --headless"), std::string::npos) << none.said;

    auto first = start({"run", "--headless", "--verbose"}, "first");
    ASSERT_TRUE(runUntil(loop, [&] { return errors("first").find("Sent: permission_state") != std::string::npos; }));
    const auto second = run({"run", "--headless"});
    EXPECT_EQ(second.status, 0);
    EXPECT_NE(second.said.find("already running"), std::string::npos) << second.said;
    ::kill(first.pid(), SIGTERM);
    ASSERT_TRUE(ends(first));
    EXPECT_EQ(first.wait(), 0);
}

}  // namespace
}  // namespace tessivox::testing
