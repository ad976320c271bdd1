#include "platform/linux/pulse/PulsePermissions.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/Error.h"
#include "sound/SoundTest.h"

namespace tessivox::testing {
namespace {

using core::MicrophoneAuthorization;

class PulsePermissionsTest : public SoundTest {
protected:
    pulse::SoundServerLink link{loop, server.address()};
    pulse::PulsePermissions permissions{link, [](core::PrivacyPane) {}};
    int changes = 0;
    base::Subscription subscription = permissions.onChange([this] { ++changes; });

    MicrophoneAuthorization microphone() { return finish(loop, permissions.microphone()); }
    bool systemAudio() { return finish(loop, permissions.canRecordScreen()); }

    /// Waits for the next change to be told.
    bool changesWithin(base::Duration limit) {
        const auto before = changes;
        return runUntil(
            loop, [&] { return changes != before; }, limit);
    }
    /// Until a link of its own, which knows no grace, sees the server with its devices.
    void waitForServer() {
        pulse::SoundServerLink other(loop, server.address());
        pulse::PulsePermissions fresh(other, nullptr);
        ASSERT_TRUE(runUntil(loop, [&] { return fresh.requestScreenRecording(); }));
    }
};

TEST_P(PulsePermissionsTest, GrantsBothWhileTheServerAndTheMonitorAreThere) {
    EXPECT_FALSE(permissions.requestScreenRecording()) << "nothing is known yet";
    EXPECT_EQ(microphone(), MicrophoneAuthorization::authorized);
    EXPECT_TRUE(systemAudio());
    EXPECT_TRUE(permissions.requestScreenRecording());
    EXPECT_TRUE(finish(loop, permissions.requestMicrophone()));
}

TEST_P(PulsePermissionsTest, TellsWithinASecondThatTheServerIsGoneAndThatItIsBack) {
    EXPECT_TRUE(systemAudio());
    server.kill();
    ASSERT_TRUE(changesWithin(1s));
    EXPECT_EQ(microphone(), MicrophoneAuthorization::notDetermined);
    EXPECT_FALSE(systemAudio());
    EXPECT_FALSE(finish(loop, permissions.requestMicrophone()));
    server.restart();
    ASSERT_TRUE(runUntil(
        loop, [&] { return permissions.requestScreenRecording(); }, 1500ms));
    EXPECT_EQ(microphone(), MicrophoneAuthorization::authorized);
}

TEST_P(PulsePermissionsTest, TellsWithinASecondThatNoOutputCanBeRecordedAnyMore) {
    EXPECT_TRUE(systemAudio());
    for (const auto* module : {"module-always-sink", "module-default-device-restore", "module-switch-on-connect"}) {
        try {
            server.unloadModule(server.moduleWith(module));
        } catch (const std::runtime_error&) {
            // This server runs without it.
        }
    }
    server.unloadModule(server.moduleWith("sink_name=micfeed"));
    server.unloadModule(server.moduleWith("sink_name=speakers"));
    ASSERT_TRUE(changesWithin(1s));
    EXPECT_FALSE(systemAudio());
    EXPECT_EQ(microphone(), MicrophoneAuthorization::authorized);
    server.loadModule({"module-null-sink", "sink_name=headphones"});
    EXPECT_TRUE(changesWithin(1s));
    EXPECT_TRUE(systemAudio());
}

TESSIVOX_WITH_BOTH_SERVERS(PulsePermissionsTest);

/// On PulseAudio only, which is back fast enough and asks strangers for a cookie.
class PulsePermissionsOnPulseAudioTest : public PulsePermissionsTest {};

TEST_P(PulsePermissionsOnPulseAudioTest, DoesNotFlickerWhileTheServerRestarts) {
    EXPECT_TRUE(systemAudio());
    changes = 0;
    server.kill();
    server.restart();
    waitForServer();
    runFor(loop, pulse::PulsePermissions::kGrace);
    EXPECT_EQ(changes, 0);
    EXPECT_TRUE(systemAudio());
}

TEST_P(PulsePermissionsOnPulseAudioTest, IsDeniedByAServerThatRefusesThisProgram) {
    const std::string port = std::to_string(20000 + getpid() % 20000);
    server.loadModule({"module-native-protocol-tcp", "listen=127.0.0.1", "port=" + port});
    const auto cookie = std::filesystem::temp_directory_path() / ("tessivox-cookie-" + port);
    setenv("PULSE_COOKIE", cookie.c_str(), 1);
    pulse::SoundServerLink stranger(loop, "tcp:127.0.0.1:" + port);
    pulse::PulsePermissions refused(stranger, nullptr);
    EXPECT_EQ(finish(loop, refused.microphone()), MicrophoneAuthorization::denied);
    EXPECT_FALSE(finish(loop, refused.canRecordScreen()));
    unsetenv("PULSE_COOKIE");
    std::filesystem::remove(cookie);
}

INSTANTIATE_TEST_SUITE_P(On, PulsePermissionsOnPulseAudioTest, ::testing::Values(SoundServerKind::pulseAudio),
                         nameOfServer);

TEST(PulsePermissionsWithoutServerTest, IsNotDeterminedAndHasNothingToReset) {
    posix::EventLoop loop;
    pulse::SoundServerLink link(loop, "unix:/nonexistent/socket");
    pulse::PulsePermissions permissions(link, nullptr);
    EXPECT_EQ(finish(loop, permissions.microphone()), MicrophoneAuthorization::notDetermined);
    EXPECT_FALSE(finish(loop, permissions.canRecordScreen()));

    const auto reset = [](core::Permissions& system, std::string& problem) -> base::Task<bool> {
        try {
            co_await system.resetScreenRecording();
        } catch (const base::Error& error) {
            problem = error.description();
        }
        co_return true;
    };
    std::string problem;
    finish(loop, reset(permissions, problem));
    EXPECT_NE(problem.find("sound settings"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::testing
