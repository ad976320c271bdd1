#include "platform/linux/gio/LogindSession.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BusPeer.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"
#include "support/PrivateBus.h"
#include "support/TestFolder.h"
#include "support/TurnLoop.h"

namespace tessivox::gio {
namespace {

using namespace std::chrono_literals;

constexpr const char* kName = "org.freedesktop.login1";
constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";
constexpr const char* kXML = R"(<node><interface name="org.freedesktop.login1.Manager">
  <method name="Inhibit">
    <arg name="what" type="s" direction="in"/><arg name="who" type="s" direction="in"/>
    <arg name="why" type="s" direction="in"/><arg name="mode" type="s" direction="in"/>
    <arg name="pipe_fd" type="h" direction="out"/>
  </method>
  <signal name="PrepareForSleep"><arg type="b"/></signal>
  <signal name="PrepareForShutdown"><arg type="b"/></signal>
</interface></node>)";

/// logind as far as it concerns inhibitors: who asks gets one end of a pipe, and delays until that is closed.
class StandInLogind {
public:
    explicit StandInLogind(const std::string& address) : peer(address) {
        peer.serve(kPath, kXML, [this](const std::string&, GVariant* parameters, GDBusMethodInvocation* invocation) {
            requests.push_back(printed(parameters));
            waiting.push_back(invocation);
            if (answersAtOnce) answer();
        });
        EXPECT_TRUE(peer.own(kName));
    }
    ~StandInLogind() { peer.leave(); }

    BusPeer peer;
    std::vector<std::string> requests;
    std::vector<GDBusMethodInvocation*> waiting;
    std::vector<posix::Descriptor> pipes;
    bool answersAtOnce = true;
    bool isBusy = false;  ///< as while a sleep is being prepared

    void answer() {
        for (auto* invocation : std::exchange(waiting, {})) {
            if (isBusy)
                g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.login1.OperationInProgress",
                                                           "");
            else
                grant(invocation);
        }
    }
    int delays() const {
        int count = 0;
        for (const auto& pipe : pipes) {
            pollfd state{pipe.get(), 0, 0};
            ::poll(&state, 1, 0);
            if (!(state.revents & POLLHUP)) ++count;
        }
        return count;
    }
    void tell(const char* signal, bool begins) { peer.emit(kPath, kInterface, signal, g_variant_new("(b)", begins)); }

private:
    void grant(GDBusMethodInvocation* invocation) {
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        pipes.emplace_back(ends[0]);
        GUnixFDList* const list = g_unix_fd_list_new_from_array(&ends[1], 1);
        g_dbus_method_invocation_return_value_with_unix_fd_list(invocation, g_variant_new("(h)", 0), list);
        g_object_unref(list);
    }
};

class LogindSessionTest : public ::testing::Test {
protected:
    testing::TestFolder folder;
    testing::PrivateBus sessionBus{folder.path(), "session"};
    testing::PrivateBus systemBus{folder.path(), "system"};
    posix::EventLoop loop;
    std::optional<StandInLogind> logind{std::in_place, systemBus.address()};
    std::optional<BusThread> bus{std::in_place, loop, BusAddresses{sessionBus.address(), systemBus.address()}};
    std::optional<LogindSession> session{*bus};
    std::vector<std::string> told;
    base::Subscription sleep =
        session->onSleep([this](bool isGoingToSleep) { told.emplace_back(isGoingToSleep ? "sleep" : "wake"); });
    base::Subscription end = session->onSessionEnd([this] { told.emplace_back("end"); });

    bool becomesTrue(const std::function<bool()>& condition) {
        return testing::runUntil(loop, [&] {
            if (logind) logind->peer.turn();
            return condition();
        });
    }
    bool isDelayed(int count = 1) {
        return becomesTrue([&] { return logind->delays() == count; });
    }
    /// Once one thing is told, so is what would have been told before.
    bool hasTold(const std::vector<std::string>& expected) {
        return becomesTrue([&] { return told.size() >= expected.size(); }) && told == expected;
    }
};

TEST_F(LogindSessionTest, DelaysAsLongAsTheDelayLives) {
    auto delay = session->delaySleepAndShutdown("A recording is being saved.");
    ASSERT_TRUE(isDelayed());
    EXPECT_EQ(logind->requests.back(), "('sleep:shutdown', 'Tessivox', 'A recording is being saved.', 'delay')");
    auto second = session->delaySleepAndShutdown("Another.");
    ASSERT_TRUE(isDelayed(2));
    delay.reset();
    EXPECT_TRUE(isDelayed(1));
    session.reset();
    EXPECT_TRUE(isDelayed(1));
    second.reset();
    EXPECT_TRUE(isDelayed(0));
}

TEST_F(LogindSessionTest, LetsGoOfADelayThatIsGrantedTooLate) {
    logind->answersAtOnce = false;
    auto delay = session->delaySleepAndShutdown("Late.");
    ASSERT_TRUE(becomesTrue([&] { return !logind->waiting.empty(); }));
    delay.reset();
    auto next = session->delaySleepAndShutdown("In time.");
    ASSERT_TRUE(becomesTrue([&] { return logind->waiting.size() == 2; }));
    logind->answer();
    ASSERT_EQ(logind->delays(), 2);
    EXPECT_TRUE(isDelayed(1));
    next.reset();
    EXPECT_TRUE(isDelayed(0));
}

TEST_F(LogindSessionTest, TellsOfSleepAndAsksAgainAfterItForWhatWasRefused) {
    auto first = session->delaySleepAndShutdown("First.");
    ASSERT_TRUE(isDelayed());
    logind->tell("PrepareForSleep", true);
    ASSERT_TRUE(hasTold({"sleep"}));
    logind->isBusy = true;
    first.reset();
    auto second = session->delaySleepAndShutdown("Second.");
    ASSERT_TRUE(becomesTrue([&] { return logind->requests.size() == 2; }));
    EXPECT_TRUE(isDelayed(0));
    logind->isBusy = false;
    logind->tell("PrepareForSleep", false);
    EXPECT_TRUE(hasTold({"sleep", "wake"}));
    EXPECT_TRUE(isDelayed(1));
}

TEST_F(LogindSessionTest, EndsWithAShutdownOnceUnlessThatIsCalledOff) {
    const auto delay = session->delaySleepAndShutdown("Recording.");
    ASSERT_TRUE(isDelayed());
    logind->tell("PrepareForShutdown", true);
    logind->tell("PrepareForShutdown", true);
    logind->tell("PrepareForShutdown", false);
    logind->tell("PrepareForShutdown", true);
    logind->tell("PrepareForSleep", true);
    EXPECT_TRUE(hasTold({"end", "end", "sleep"}));
    sessionBus.end();
    const auto later = session->delaySleepAndShutdown("Later.");
    ASSERT_TRUE(isDelayed(2));
    logind->tell("PrepareForSleep", false);
    EXPECT_TRUE(hasTold({"end", "end", "sleep", "wake"}));
}

TEST_F(LogindSessionTest, EndsWithTheSessionBus) {
    const auto delay = session->delaySleepAndShutdown("Recording.");
    ASSERT_TRUE(isDelayed());
    logind->tell("PrepareForSleep", false);
    ASSERT_TRUE(hasTold({"wake"}));
    sessionBus.end();
    EXPECT_TRUE(hasTold({"wake", "end"}));
}

TEST_F(LogindSessionTest, FollowsALogindThatComesLaterAndFindsABusThatWasStartedAgainWithTheNextDelay) {
    auto delay = session->delaySleepAndShutdown("Recording.");
    ASSERT_TRUE(isDelayed());
    logind.reset();
    auto second = session->delaySleepAndShutdown("Second.");
    logind.emplace(systemBus.address());
    ASSERT_TRUE(isDelayed(1));
    EXPECT_NE(logind->requests.back().find("Second."), std::string::npos);

    logind.reset();
    systemBus.end();
    systemBus.start();
    logind.emplace(systemBus.address());
    std::unique_ptr<detection::SessionWatch::Delay> next;
    EXPECT_TRUE(becomesTrue([&] {
        if (logind->requests.empty()) next = session->delaySleepAndShutdown("Next.");
        return logind->delays() == 1;
    }));
}

TEST_F(LogindSessionTest, DelaysNothingWithoutASystemBus) {
    session.reset();
    bus.emplace(loop, BusAddresses{sessionBus.address(), "unix:path=/nowhere/bus"});
    BusPeer other(sessionBus.address());
    const auto changes = other.signalsOf("org.freedesktop.DBus", "NameOwnerChanged");
    session.emplace(*bus);
    end = session->onSessionEnd([this] { told.emplace_back("end"); });
    auto delay = session->delaySleepAndShutdown("Recording.");
    delay.reset();
    const auto hasJoined = [&] {
        other.turn();
        for (const auto& change : *changes) {
            if (change.find("', '', ':") != std::string::npos) return true;
        }
        return false;
    };
    ASSERT_TRUE(becomesTrue(hasJoined));
    EXPECT_TRUE(logind->requests.empty());
    sessionBus.end();
    EXPECT_TRUE(hasTold({"end"}));
}

}  // namespace
}  // namespace tessivox::gio
