#include "platform/linux/gio/ControlService.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BusPeer.h"
#include "base/Completion.h"
#include "base/Error.h"
#include "platform/linux/gio/ControlClient.h"
#include "platform/linux/gio/ControlProtocol.h"
#include "platform/linux/posix/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/TestFolder.h"
#include "support/TurnLoop.h"

namespace tessivox::gio {
namespace {

using namespace std::chrono_literals;
using core::ProgramAnswer;
using core::ProgramFailure;
using core::ProgramRequest;
using core::ProgramStatus;
using Kind = ProgramFailure::Kind;

/// A program that takes requests: it does at once what it is asked for, unless it is told to wait or to refuse.
class ControlServiceTest : public ::testing::Test {
protected:
    testing::TestFolder folder;
    testing::PrivateBus session{folder.path()};
    posix::EventLoop loop;
    BusPeer peer{session.address()};
    std::optional<BusThread> bus{std::in_place, loop, BusAddresses{session.address(), ""}};

    const ProgramStatus afterStop{false, false, false, 0, "/tmp/saved.m4a", 1.5};
    ProgramStatus status;
    std::vector<ProgramRequest> requests;
    std::vector<std::filesystem::path> opened;
    std::vector<std::string> said;
    std::optional<std::string> refusal;
    std::optional<base::Completion<bool>> gate;  ///< what a request waits for
    std::unique_ptr<ControlService> service;

    base::Task<ProgramStatus> carryOut(ProgramRequest request) {
        requests.push_back(request);
        if (gate) co_await *gate;
        if (refusal) throw base::Error("test", 1, *refusal);
        if (request == ProgramRequest::start) status = {true, false, status.isCallDetected, 12.5, "/tmp/a b.m4a"};
        auto after = status;
        if (request == ProgramRequest::stop) {
            status = {};
            after = afterStop;
        }
        co_return after;
    }
    void start() {
        service = std::make_unique<ControlService>(
            *bus, ControlService::Handlers{
                      [this](ProgramRequest request) { return carryOut(request); }, [this] { return status; },
                      [this](std::vector<std::filesystem::path> files) { opened = std::move(files); },
                      [this](const std::string& sentence) { said.push_back(sentence); }});
    }
    bool becomesTrue(const std::function<bool()>& condition) {
        return testing::runUntil(loop, [&] {
            peer.turn();
            return condition();
        });
    }
    bool isReachable() {
        std::shared_ptr<BusPeer::Call> call;
        return becomesTrue([&] {
            if (!call || (call->isDone && call->value.empty())) call = request("Status");
            return !call->value.empty();
        });
    }
    std::shared_ptr<BusPeer::Call> request(const std::string& method) {
        return peer.call(kControlName, kControlPath, kControlInterface, method, nullptr);
    }
    std::shared_ptr<BusPeer::Call> application(const std::string& method, GVariant* parameters) {
        return peer.call(kControlName, kControlPath, kApplicationInterface, method, parameters);
    }
    std::shared_ptr<BusPeer::Call> answered(const std::shared_ptr<BusPeer::Call>& call) {
        EXPECT_TRUE(becomesTrue([&] { return call->isDone; }));
        return call;
    }
    ProgramAnswer asked(ProgramRequest request, base::Duration patience = 10s) {
        BusThread own(loop, BusAddresses{session.address(), ""});
        ControlClient client(own, patience);
        std::optional<ProgramAnswer> answer;
        std::exception_ptr error;
        base::TaskScope scope(loop);
        scope.start(testing::keepResult(client.ask(request), answer, error));
        EXPECT_TRUE(becomesTrue([&] { return scope.isIdle(); }));
        return answer.value_or(ProgramFailure{Kind::refused, "nothing"});
    }
    static ProgramAnswer failure(Kind kind, const std::string& sentence = {}) { return ProgramFailure{kind, sentence}; }
};

TEST_F(ControlServiceTest, TellsTheChangeToEverybodyAndThenAnswersWithTheStatusAfterIt) {
    start();
    ASSERT_TRUE(isReachable());
    const auto changes = peer.signalsOf("org.freedesktop.DBus.Properties", "PropertiesChanged");
    const auto started = request("Start");
    EXPECT_TRUE(becomesTrue([&] { return started->isDone || !changes->empty(); }));
    EXPECT_FALSE(started->isDone && changes->empty());
    EXPECT_EQ(answered(started)->value,
              "({'Recording': <true>, 'Paused': <false>, 'CallDetected': <false>, 'Seconds': <12.5>, 'File': "
              "<'file:///tmp/a%20b.m4a'>},)");
    EXPECT_EQ(changes->back(),
              "('com.tessivox.Tessivox', {'Recording': <true>, 'File': <'file:///tmp/a%20b.m4a'>}, [])");

    status.seconds = 13;
    service->noteChange();
    status.isCallDetected = true;
    service->noteChange();
    EXPECT_TRUE(becomesTrue([&] { return changes->size() == 2; }));
    EXPECT_EQ(changes->back(), "('com.tessivox.Tessivox', {'CallDetected': <true>}, [])");
    const auto all = peer.call(kControlName, kControlPath, "org.freedesktop.DBus.Properties", "GetAll",
                               g_variant_new("(s)", kControlInterface));
    EXPECT_EQ(answered(all)->value,
              "({'Recording': <true>, 'Paused': <false>, 'CallDetected': <true>, 'File': "
              "<'file:///tmp/a%20b.m4a'>},)");
    EXPECT_EQ(requests, std::vector{ProgramRequest::start});
}

TEST_F(ControlServiceTest, AnswersARefusalWithItsSentenceAndAStartOnlyWhenItIsDecided) {
    start();
    ASSERT_TRUE(isReachable());
    gate.emplace();
    const auto started = request("Start");
    ASSERT_TRUE(becomesTrue([&] { return requests.size() == 1; }));
    answered(request("Status"));
    EXPECT_FALSE(started->isDone);
    refusal = "No microphone is connected: connect one.";
    gate->succeed(true);
    EXPECT_EQ(answered(started)->error, "com.tessivox.Tessivox.Error.Refused");
    EXPECT_EQ(started->message, *refusal);

    gate.emplace();
    const auto stopped = request("Stop");
    ASSERT_TRUE(becomesTrue([&] { return requests.size() == 2; }));
    service.reset();
    EXPECT_EQ(answered(stopped)->message, "Tessivox ended before this was done.");
}

TEST_F(ControlServiceTest, IsActivatedByTheDesktop) {
    start();
    ASSERT_TRUE(isReachable());
    EXPECT_EQ(answered(application("Activate", g_variant_new("(a{sv})", nullptr)))->value, "()");
    const char* uris[] = {"file:///tmp/a%20b.wav", "https://example.org/x.wav", "file:///tmp/%FF.wav", nullptr};
    answered(application("Open", g_variant_new("(^asa{sv})", uris, nullptr)));
    EXPECT_EQ(opened, (std::vector<std::filesystem::path>{"/tmp/a b.wav", "/tmp/\xff.wav"}));
    EXPECT_EQ(answered(application("ActivateAction", g_variant_new("(sava{sv})", "toggle", nullptr, nullptr)))->value,
              "()");
    EXPECT_EQ(requests, (std::vector{ProgramRequest::activate, ProgramRequest::toggle}));
    EXPECT_NE(answered(application("ActivateAction", g_variant_new("(sava{sv})", "erase", nullptr, nullptr)))->error,
              "");
}

TEST_F(ControlServiceTest, SaysOnceWhyItCannotBeReachedAndTakesTheNameWhenItIsFree) {
    ASSERT_TRUE(peer.own(kControlName));
    start();
    ASSERT_TRUE(becomesTrue([&] { return !said.empty(); }));
    EXPECT_NE(said.back().find("Another program has the name"), std::string::npos);
    peer.disown(kControlName);
    EXPECT_TRUE(isReachable());
    EXPECT_EQ(said.size(), 1U);

    service.reset();
    session.end();
    bus.emplace(loop, BusAddresses{session.address(), ""});
    start();
    ASSERT_TRUE(becomesTrue([&] { return said.size() == 2; }));
    EXPECT_NE(said.back().find("no session bus"), std::string::npos);
}

TEST_F(ControlServiceTest, ClientGetsTheStatusOrTheSentence) {
    start();
    ASSERT_TRUE(isReachable());
    const auto started = asked(ProgramRequest::start);
    EXPECT_EQ(std::get<ProgramStatus>(started), status);
    EXPECT_EQ(std::get<ProgramStatus>(asked(ProgramRequest::stop)), afterStop);
    EXPECT_EQ(std::get<ProgramStatus>(asked(ProgramRequest::activate)), ProgramStatus{});
    refusal = "It does not record.";
    EXPECT_EQ(asked(ProgramRequest::pause), failure(Kind::refused, *refusal));
}

TEST_F(ControlServiceTest, ClientWaitsForALongAnswerAsLongAsTheProgramLives) {
    start();
    ASSERT_TRUE(isReachable());
    gate.emplace();
    const auto opening = loop.after(300ms, [this] { gate->succeed(true); });
    EXPECT_TRUE(std::get<ProgramStatus>(asked(ProgramRequest::start, 50ms)).isRecording);
}

TEST_F(ControlServiceTest, ClientTellsWhyThereIsNoAnswer) {
    EXPECT_EQ(asked(ProgramRequest::status), failure(Kind::notRunning));
    BusPeer hanging(session.address());
    const auto interface = R"(<node><interface name="com.tessivox.Tessivox">
        <method name="Status"/><method name="Stop"/></interface></node>)";
    hanging.serve(kControlPath, interface, [](auto&, auto*, auto* invocation) { g_object_unref(invocation); });
    ASSERT_TRUE(hanging.own(kControlName));
    EXPECT_EQ(asked(ProgramRequest::status, 50ms), failure(Kind::noAnswer));
    EXPECT_EQ(asked(ProgramRequest::stop, 50ms), failure(Kind::noAnswer));
    const auto leaving = loop.after(100ms, [&] { hanging.leave(); });
    EXPECT_EQ(asked(ProgramRequest::stop), failure(Kind::ended));
    session.end();
    EXPECT_EQ(asked(ProgramRequest::status), failure(Kind::noBus));
}

TEST(BusAddressesTest, StartsNoBusAndFindsTheOneOfTheSession) {
    const testing::TestFolder folder;
    std::map<std::string, std::string> variables{{"XDG_RUNTIME_DIR", folder.path().string()}};
    const auto environment = [&](const std::string& name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    };
    EXPECT_EQ(busAddresses(environment).session, "");
    const testing::PrivateBus bus(folder.path());
    EXPECT_EQ(busAddresses(environment).session, bus.address());
    variables["DBUS_SESSION_BUS_ADDRESS"] = "autolaunch:";
    EXPECT_EQ(busAddresses(environment).session, "");
    variables["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/tmp/x";
    EXPECT_EQ(busAddresses(environment).session, "unix:path=/tmp/x");
    EXPECT_EQ(busAddresses(environment).system, "unix:path=/var/run/dbus/system_bus_socket");
}

}  // namespace
}  // namespace tessivox::gio
