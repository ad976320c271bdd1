#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "audio/AudioRecorder.h"
#include "core/JsonPreferences.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/pulse/PulseAudioDevices.h"
#include "platform/linux/pulse/PulseCaptureBackend.h"
#include "platform/linux/pulse/SoundServerLink.h"
#include "sound/CapturedSound.h"
#include "sound/SoundTest.h"
#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"
#include "support/QuietDesktop.h"
#include "support/SoundPlayer.h"

namespace tessivox::testing {
namespace {

/// The whole recorder on a real server; only the disk and the encoder are stand-ins, so that what is recorded can be
/// measured to the sample.
class RecordingOnServersTest : public ::testing::TestWithParam<SoundServerKind> {
protected:
    SoundServer server{GetParam()};
    posix::EventLoop loop;
    CrashingFiles disk;
    FakeConverter converters;
    FakeEncoder encoders;
    UtcTime utc;
    NoChooser chooser;
    NoLoginItem loginItem;
    core::JsonPreferences store{disk, loop, "/config/settings.json", [](const std::string&) {}};
    core::AppSettings settings{store, disk, {"/documents", "/data", "/config", "/tmp"}, chooser, loginItem};
    core::AppState state{loop};
    audio::AudioLevelMonitor levels{loop};
    pulse::SoundServerLink link{loop, server.address()};
    pulse::PulseAudioDevices devices{link};
    pulse::PulseCaptureBackend backend{loop, server.address()};
    audio::StereoAudioWriter writer{loop, disk, converters, encoders, "/data/Incomplete"};
    audio::AudioRecorder recorder{
        {loop, disk, utc, settings, state, devices, backend, levels}, writer, "/data/Incomplete"};
    std::vector<float> left, right;
    base::HostTime started{};

    bool runUntil(const std::function<bool()>& condition, base::Duration limit = 10s) {
        bool isMet = false;
        const auto poll = loop.every(5ms, [&] {
            if ((isMet = condition())) loop.quit();
        });
        const auto deadline = loop.after(limit, [this] { loop.quit(); });
        loop.run();
        return isMet;
    }
    /// Real sound takes real time.
    void record(base::Duration span) {
        runUntil([] { return false; }, span);
    }
    void start() {
        const auto begin = [this]() -> base::Task<void> {
            co_await recorder.startRecording(std::nullopt, std::nullopt);
        };
        base::TaskScope scope(loop);
        scope.start(begin());
        ASSERT_TRUE(runUntil([this] { return recorder.isRecording.get(); }));
        started = loop.now();
    }
    /// Where in the recording the present moment is; on a busy machine commands to the server take a while. Good to
    /// some tenths of a second.
    double secondsRecorded() const { return base::toSeconds(loop.now() - started); }
    static std::size_t framesIn(double seconds) { return static_cast<std::size_t>(seconds * 48000); }
    void stop() {
        std::optional<audio::RecordingStopOutcome> outcome;
        const auto end = [&]() -> base::Task<void> { outcome = co_await recorder.stopRecording(); };
        base::TaskScope scope(loop);
        scope.start(end());
        ASSERT_TRUE(runUntil([&] { return outcome && scope.isIdle(); }, 60s));
        const auto samples = FakeEncoder::samplesOf(disk, std::get<audio::Saved>(*outcome).url);
        for (std::size_t index = 0; index + 1 < samples.size(); index += 2) {
            left.push_back(samples[index]);
            right.push_back(samples[index + 1]);
        }
    }
    /// The microphone "roommic" hears what is played into "room" at the very moment it is played.
    void useRoom() {
        roomMicrophone = server.addRoom();
        server.setDefaultSink("room");
        server.setDefaultSource("roommic");
    }
    unsigned roomMicrophone = 0;

    /// Distance of each click on the left to the nearest one on the right, in milliseconds, for those from a second of
    /// the recording on.
    std::vector<double> clickOffsets(double fromSecond, double untilSecond) {
        const auto onLeft = findClicks(left, base::HostTime{});
        const auto onRight = findClicks(right, base::HostTime{});
        std::vector<double> offsets;
        for (const auto click : onLeft) {
            const auto second = base::toSeconds(click - base::HostTime{});
            if (second < fromSecond || second > untilSecond) continue;
            double nearest = 1e9;
            for (const auto other : onRight) {
                nearest = std::min(nearest, std::abs(base::toSeconds(click - other)) * 1e3);
            }
            offsets.push_back(nearest);
        }
        std::ranges::sort(offsets);
        return offsets;
    }
    static double percentile95(const std::vector<double>& sorted) { return sorted.at(sorted.size() * 95 / 100); }

    void stallMicrophone(bool stalled) {
        if (GetParam() == SoundServerKind::pulseAudio) {
            server.run({"pactl", "suspend-source", "roommic", stalled ? "1" : "0"});
            return;
        }
        if (stalled) links_ = server.linksFrom("roommic");
        for (const auto& [from, to] : links_) {
            stalled ? server.run({"pw-link", "-d", from, to}) : server.run({"pw-link", from, to});
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> links_;
};

TEST_P(RecordingOnServersTest, AClickIsHeardAtTheSameFrameOnBothChannelsForAMinute) {
    useRoom();
    const auto player = server.play("room", {"clicks", "250"});
    start();
    record(61s);
    stop();
    const auto offsets = clickOffsets(0, 60);
    ASSERT_GT(offsets.size(), 220U);
    EXPECT_LT(percentile95(offsets), 2.0);
    RecordProperty("p95_us", static_cast<int>(percentile95(offsets) * 1e3));
    EXPECT_FALSE(state.lastError.get());
}

TEST_P(RecordingOnServersTest, TheChannelsAgreeAgainAfterAStallAndAfterUnpluggingTheMicrophone) {
    useRoom();
    const auto player = server.play("room", {"clicks", "100"});
    start();
    record(4s);
    stallMicrophone(true);
    const auto stalled = secondsRecorded();
    record(5s);
    const auto resumed = secondsRecorded();
    stallMicrophone(false);
    record(1s);
    const auto settled = secondsRecorded();
    record(6s);
    const auto unplugged = secondsRecorded();
    server.unloadModule(roomMicrophone);
    ASSERT_TRUE(runUntil([this] { return state.lastError.get().has_value(); }));
    record(2s);
    server.run({"pactl", "load-module", "module-remap-source", "master=room.monitor", "source_name=roommic",
                "channels=1", "channel_map=mono", "master_channel_map=front-left"});
    server.setDefaultSource("roommic");
    record(7s);
    stop();
    const auto quiet = std::span(left).subspan(framesIn(stalled + 1), framesIn(resumed - stalled - 2));
    EXPECT_TRUE(std::ranges::all_of(quiet, [](float sample) { return std::abs(sample) < 0.01F; }))
        << "the stall did not happen";
    const auto afterStall = clickOffsets(settled, unplugged - 0.5);
    ASSERT_GT(afterStall.size(), 40U);
    EXPECT_LT(percentile95(afterStall), 5.0);
    const auto afterReplug = clickOffsets(static_cast<double>(left.size()) / 48000 - 5, 1e9);
    ASSERT_GT(afterReplug.size(), 40U);
    EXPECT_LT(percentile95(afterReplug), 5.0);
    RecordProperty("p95_after_stall_us", static_cast<int>(percentile95(afterStall) * 1e3));
    RecordProperty("p95_after_replug_us", static_cast<int>(percentile95(afterReplug) * 1e3));
}

TEST_P(RecordingOnServersTest, TonesComeOutWhereTheyWentInWithoutTicksAtTheJoins) {
    const auto voice = server.play("micfeed", {"sine", "440"});
    const auto music = server.play("speakers", {"sine", "880"});
    start();
    record(12s);
    stop();
    for (const auto& [channel, hertz, other] : {std::tuple(&left, 440.0, 880.0), std::tuple(&right, 880.0, 440.0)}) {
        std::vector<double> residuals;  // dB to the tone, each 100 ms
        std::vector<double> leaks;
        for (std::size_t from = 48000; from + 4800 <= channel->size() - 48000; from += 4800) {
            const auto window = std::vector(channel->begin() + static_cast<std::ptrdiff_t>(from),
                                            channel->begin() + static_cast<std::ptrdiff_t>(from + 4800));
            const auto tone = measureTone(window, hertz);
            residuals.push_back(20 * std::log10(tone.residual * std::numbers::sqrt2 / (tone.amplitude + 1e-9)));
            leaks.push_back(20 * std::log10(measureTone(window, other).amplitude / (tone.amplitude + 1e-9)));
        }
        std::ranges::sort(leaks);
        std::ranges::sort(residuals);
        ASSERT_GT(residuals.size(), 90U);
        EXPECT_LT(percentile95(residuals), -50.0) << hertz << " Hz";
        EXPECT_LT(percentile95(leaks), -50.0) << hertz << " Hz";
        EXPECT_GT(measureTone(std::vector(channel->begin() + 96000, channel->begin() + 144000), hertz).amplitude, 0.1);
    }
}

TEST_P(RecordingOnServersTest, ARecordingOutlivesItsServerAndFollowsTheDefaultOutput) {
    const auto music = server.play("speakers", {"sine", "880"});
    start();
    record(2s);
    server.loadModule({"module-null-sink", "sink_name=headphones", "rate=48000", "channels=2", "norewinds=1"});
    const auto elsewhere = server.play("headphones", {"sine", "660"});
    server.setDefaultSink("headphones");
    record(3s);
    server.kill();
    ASSERT_TRUE(runUntil([this] { return state.lastError.get().has_value(); }));
    record(1s);
    server.restart();
    const auto again = server.play("speakers", {"sine", "990"});
    record(4s);
    stop();
    const auto toneAt = [this](double second, double hertz) {
        const auto from = right.begin() + static_cast<std::ptrdiff_t>(second * 48000);
        return measureTone(std::vector(from, from + 9600), hertz).amplitude;
    };
    const auto length = static_cast<double>(right.size()) / 48000;
    EXPECT_GT(toneAt(1.0, 880), 0.2);
    EXPECT_GT(toneAt(4.0, 660), 0.2);
    EXPECT_GT(toneAt(length - 1, 990), 0.2);
    EXPECT_GT(length, 9.5);
}

TESSIVOX_WITH_BOTH_SERVERS(RecordingOnServersTest);

}  // namespace
}  // namespace tessivox::testing
