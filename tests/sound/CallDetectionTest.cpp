#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/pulse/PulseCaptureBackend.h"
#include "sound/CapturedSound.h"
#include "sound/SoundTest.h"
#include "sound/Watcher.h"
#include "support/ChromiumProcess.h"

namespace tessivox::testing {
namespace {

const std::vector<std::string> kParec{"parec", "-d", "mic", "/dev/null"};

/// Real clients on real servers, up to what the detector tells.
class CallDetectionTest : public SoundTest {
protected:
    Watcher watcher{loop, server.address()};
    std::optional<base::HostTime> event;  ///< the server's first since the last look
    std::optional<base::HostTime> told;
    std::vector<double> delays;  ///< from the event to its being told, in seconds
    std::string responsible;
    base::Subscription news = watcher.link.onNews(
        [this](pulse::ServerNews) { event = event.value_or(loop.now() - pulse::SoundServerLink::kGathering); });
    base::Subscription started = watcher.detector.callStarted.observe([this](std::string app) {
        responsible = app;
        told = loop.now();
    });
    base::Subscription ended = watcher.detector.callEnded.observe([this] { told = loop.now(); });

    void SetUp() override {
        server.addRoom();
        ASSERT_TRUE(runUntil(
            loop, [this] { return watcher.use.defaultInputDevice() != pulse::PulseInputUse::kNoInput && event; }));
        runFor(loop, 200ms);  // What the servers still have to say of their devices.
    }
    void startLooking() {
        event.reset();
        told.reset();
    }
    /// Whether the detector tells something; keeps how long after the server it did.
    bool tells(base::Duration limit = 10s) {
        const bool isTold = runUntil(
            loop, [&] { return told.has_value(); }, limit);
        if (isTold && event) delays.push_back(base::toSeconds(*told - *event));
        return isTold;
    }
    void callWith(const std::vector<std::string>& command, const std::string& expected) {
        startLooking();
        auto client = server.spawn(command);
        ASSERT_TRUE(tells()) << command.front();
        EXPECT_TRUE(watcher.detector.isCallActive.get());
        EXPECT_EQ(responsible, expected);
        EXPECT_EQ(watcher.detector.excludableApp(), std::nullopt) << "a command";
        startLooking();
        client.stop(SIGKILL);
        ASSERT_TRUE(tells()) << command.front();
        EXPECT_FALSE(watcher.detector.isCallActive.get());
    }
    void expectQuickness() {
        std::ranges::sort(delays);
        RecordProperty("median_s", std::to_string(delays[delays.size() / 2]));
        RecordProperty("longest_s", std::to_string(delays.back()));
        EXPECT_GE(delays.front(), 1.0);
        EXPECT_LE(delays[delays.size() / 2], 1.3);
        EXPECT_LE(delays.back(), 2.5);
    }
};

TEST_P(CallDetectionTest, TellsOfCallsAndTheirEndsASecondAfterTheServer) {
    callWith(kParec, "pacat");
    callWith({"ffmpeg", "-loglevel", "quiet", "-f", "pulse", "-i", "roommic", "-f", "null", "-"}, "ffmpeg");
    callWith({"gst-launch-1.0", "-q", "pulsesrc", "!", "fakesink"}, "gst-launch-1.0");
    if (GetParam() == SoundServerKind::pipeWire) callWith({"pw-record", "/dev/null"}, "pw-cat");
    expectQuickness();
}

TEST_P(CallDetectionTest, TakesNeitherMetersNorMonitorsNorOurOwnRecordingForACall) {
    pulse::PulseCaptureBackend backend(loop, server.address());
    CapturedSound sound;
    const auto own = finish(loop, backend.openMicrophone("mic", sound));
    const auto meter = server.listen("mic", "peaks");
    const auto monitor = server.spawn({"parec", "-d", "speakers.monitor", "/dev/null"});
    startLooking();
    EXPECT_FALSE(tells(1500ms));
    const auto parec = server.spawn(kParec);
    EXPECT_TRUE(tells()) << "beside our own recording";
}

TEST_P(CallDetectionTest, LetsACallOutliveARestartOfTheServer) {
    auto before = server.spawn(kParec);
    ASSERT_TRUE(tells());
    startLooking();
    server.kill();
    before.wait();
    server.restart();
    const auto after = server.spawn(kParec);
    const std::vector<detection::InputProcess> expected{{after.pid(), "pacat"}};
    ASSERT_TRUE(runUntil(loop, [&] { return watcher.use.inputProcesses() == expected; }));
    EXPECT_FALSE(tells(1200ms));
    EXPECT_TRUE(watcher.detector.isCallActive.get());
}

TEST_P(CallDetectionTest, KnowsABrowserInACall) {
    startLooking();
    ChromiumProcess chromium(server);
    ASSERT_TRUE(tells(60s));
    EXPECT_EQ(responsible, "com.google.Chrome");
    const auto file = watcher.applications.urlForApplication("com.google.Chrome");
    ASSERT_TRUE(file);
    EXPECT_EQ(watcher.detector.callDisplayName(), watcher.applications.bundleDisplayName(*file));
    EXPECT_EQ(watcher.detector.excludableApp(), std::nullopt);
    startLooking();
    chromium.end();
    ASSERT_TRUE(tells());
    expectQuickness();
}

TESSIVOX_WITH_BOTH_SERVERS(CallDetectionTest);

}  // namespace
}  // namespace tessivox::testing
