#include "audio/AudioRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "core/JsonPreferences.h"
#include "core/PreferencesOverlay.h"
#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"
#include "support/FakeSound.h"
#include "support/ManualRuntime.h"
#include "support/QuietDesktop.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;
using testing::FakeEncoder;

struct AudioRecorderTest : ::testing::Test {
    testing::CrashingFiles disk;
    testing::ManualRuntime time;
    testing::FakeSound sound{time};
    testing::FakeConverter converters;
    FakeEncoder encoders;
    testing::UtcTime utc;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    core::JsonPreferences store{disk, time, "/home/config/settings.json", [](const std::string&) {}};
    core::AppSettings settings{
        store, disk, {"/home/documents", "/home/data", "/home/config", "/tmp"}, chooser, loginItem};
    core::AppState state{time};
    AudioLevelMonitor levels{time};
    StereoAudioWriter writer{time, disk, converters, encoders, "/home/data/Incomplete"};
    AudioRecorder recorder{{time, disk, utc, settings, state, sound, sound, levels}, writer, "/home/data/Incomplete"};

    void SetUp() override {
        time.setWallTime(base::WallTime(std::chrono::sys_days{std::chrono::March / 1 / 2026}) + 9h + 5min);
    }

    std::filesystem::path start(std::optional<SourceOverride> override = {}) {
        return testing::await(time, recorder.startRecording(override, std::nullopt));
    }
    std::string startError(std::optional<SourceOverride> override = {}) {
        try {
            start(override);
            return "";
        } catch (const base::Error& error) {
            return error.description();
        }
    }
    RecordingStopOutcome stop() { return testing::await(time, recorder.stopRecording()); }
    /// A tenth of a second from a source, heard now; time goes on by as much.
    void hear(const std::string& source, float value) {
        const std::vector<float> samples(4800, value);
        sound.play(source, {{48000, 1}, samples}, time.now());
        time.advance(100ms);
    }
    std::string lastError() const { return state.lastError.get() ? state.lastError.get()->description() : ""; }
    std::vector<float> channel(const RecordingStopOutcome& outcome, std::size_t side) {
        const auto samples = FakeEncoder::samplesOf(disk, std::get<Saved>(outcome).url);
        std::vector<float> values;
        for (std::size_t index = side; index < samples.size(); index += 2) values.push_back(samples[index]);
        return values;
    }
    bool isTidy() { return sound.openStreams() == 0 && disk.list("/home/data/Incomplete").empty(); }
};

TEST_F(AudioRecorderTest, RecordsBothSourcesIntoAFileNamedAfterTheTime) {
    EXPECT_EQ(start(), "/home/documents/TessivoxRecordings/2026-03-01_09-05-00.m4a");
    EXPECT_TRUE(recorder.isRecording.get());
    hear("pci", 0.1F);
    hear("speakers.monitor", 0.2F);
    EXPECT_GT(levels.microphoneLevel.get(), 0.25F);
    EXPECT_GT(levels.systemAudioLevel.get(), 0.25F);
    const auto outcome = stop();
    EXPECT_EQ(channel(outcome, 0).front(), 0.1F);
    EXPECT_EQ(channel(outcome, 1).back(), 0.2F);
    EXPECT_FALSE(recorder.isRecording.get());
    EXPECT_TRUE(isTidy());
    EXPECT_EQ(lastError(), "");
}

TEST_F(AudioRecorderTest, ANameThatIsTakenGivesWayToTheNextFreeSecond) {
    disk.put("/home/documents/TessivoxRecordings/2026-03-01_09-05-00.m4a", "a recording");
    disk.put("/home/data/Incomplete/stereo_2026-03-01_09-05-01.caf", "left by a crash");
    EXPECT_EQ(start().filename(), "2026-03-01_09-05-02.m4a");
    stop();
    EXPECT_TRUE(disk.exists("/home/data/Incomplete/stereo_2026-03-01_09-05-01.caf"));
}

TEST_F(AudioRecorderTest, AnOverrideRecordsOneSourceWhateverTheSettingsSay) {
    settings.recordMicrophone.set(false);
    start(SourceOverride::microphoneOnly);
    EXPECT_TRUE(sound.isOpen("pci"));
    EXPECT_EQ(sound.openStreams(), 1);
    hear("pci", 0.5F);
    const auto right = channel(stop(), 1);
    EXPECT_EQ(std::ranges::count(right, 0.0F), std::ssize(right));
    start();
    EXPECT_FALSE(sound.isOpen("pci"));
    EXPECT_TRUE(sound.isOpen("speakers.monitor"));
    EXPECT_TRUE(std::holds_alternative<Empty>(stop()));
}

TEST_F(AudioRecorderTest, ASecondStartIsRefusedWhileTheFirstWaitsRunsOrIsSaved) {
    sound.delay("speakers.monitor", 2s);
    base::TaskScope scope(time);
    const auto begin = [this]() -> base::Task<void> { co_await recorder.startRecording(std::nullopt, std::nullopt); };
    scope.start(begin());
    time.advance(1s);
    EXPECT_EQ(startError(), "Recording is already in progress");
    time.advance(2s);
    EXPECT_EQ(startError(), "Recording is already in progress");
    hear("pci", 0.5F);
    time.stall("com.tessivox.stereo.encode", true);
    const auto end = [this]() -> base::Task<void> { co_await recorder.stopRecording(); };
    scope.start(end());
    time.advance(1s);
    EXPECT_EQ(startError(), "Recording is already in progress");
    EXPECT_TRUE(std::holds_alternative<Empty>(stop()));
    time.stall("com.tessivox.stereo.encode", false);
    EXPECT_FALSE(recorder.isRecording.get());
    EXPECT_TRUE(disk.exists(*recorder.outputURL()));
}

TEST_F(AudioRecorderTest, ASourceThatFailsAtTheStartLeavesNothingOpenAndNoFile) {
    sound.refuse("speakers.monitor", true);
    EXPECT_EQ(startError(), "Access was refused.");
    EXPECT_FALSE(recorder.isRecording.get());
    EXPECT_TRUE(isTidy());
    sound.setOutput("");
    EXPECT_NE(startError().find("output device"), std::string::npos);
    sound.unplug("pci");
    EXPECT_EQ(startError(), "Audio input device not found");
    sound.die();
    EXPECT_NE(startError().find("PipeWire"), std::string::npos);
    EXPECT_TRUE(isTidy());
    EXPECT_TRUE(disk.list("/home/documents/TessivoxRecordings").empty());
}

TEST_F(AudioRecorderTest, AFolderThatCannotHoldTheTemporaryFileFailsTheStart) {
    disk.put("/home/data/Incomplete", "a file where the folder should be");
    EXPECT_NE(startError(), "");
    EXPECT_EQ(sound.openStreams(), 0);
    EXPECT_FALSE(recorder.isRecording.get());
}

TEST_F(AudioRecorderTest, APauseStopsTheLevelsAndLeavesTheSpanOut) {
    start();
    hear("pci", 0.1F);
    recorder.pauseRecording();
    recorder.pauseRecording();
    EXPECT_TRUE(recorder.isPaused.get());
    const auto level = levels.microphoneLevel.get();
    for (int round = 0; round < 20; ++round) hear("pci", 0.9F);
    EXPECT_EQ(levels.microphoneLevel.get(), level);
    recorder.resumeRecording();
    recorder.resumeRecording();
    hear("pci", 0.2F);
    recorder.pauseRecording();
    const auto left = channel(stop(), 0);
    EXPECT_EQ(left.size(), 9600U);
    EXPECT_EQ(left[4799], 0.1F);
    EXPECT_EQ(left[4800], 0.2F);
    EXPECT_FALSE(recorder.isPaused.get());
    recorder.pauseRecording();
    EXPECT_FALSE(recorder.isPaused.get());
}

TEST_F(AudioRecorderTest, TheSelectedMicrophoneIsUsedAgainWhenItComesBackAndTheDefaultMeanwhile) {
    sound.plug("usb", "Headset");
    settings.selectedMicrophoneID.set("usb");
    start();
    EXPECT_TRUE(sound.isOpen("usb"));
    sound.setDefaultInput("usb");
    sound.unplug("usb");
    EXPECT_NE(lastError().find("unplugged"), std::string::npos);
    time.advance(299ms);
    EXPECT_FALSE(sound.isOpen("pci"));
    time.advance(2ms);
    EXPECT_TRUE(sound.isOpen("pci"));
    recorder.pauseRecording();
    sound.plug("usb", "Headset");
    time.advance(1s);
    EXPECT_TRUE(sound.isOpen("usb"));
    EXPECT_FALSE(sound.isOpen("pci"));
    stop();
    sound.unplug("usb");
    time.advance(10s);
    EXPECT_EQ(sound.openStreams(), 0);
}

TEST_F(AudioRecorderTest, SystemAudioFollowsTheOutputAndNeverTurnsIntoAMicrophone) {
    start();
    sound.setOutput("headphones.monitor");
    time.advance(1s);
    EXPECT_TRUE(sound.isOpen("headphones.monitor"));
    EXPECT_EQ(sound.openStreams(), 2);
    sound.setOutput("");
    sound.unplug("headphones.monitor");
    time.advance(10s);
    EXPECT_EQ(sound.openStreams(), 1);
    EXPECT_TRUE(sound.isOpen("pci"));
    stop();
}

TEST_F(AudioRecorderTest, ARecordingOutlivesTheSoundServerAndGoesOnWithSilenceBetween) {
    start();
    hear("pci", 0.1F);
    sound.die();
    EXPECT_NE(lastError(), "");
    time.advance(60s);
    sound.refuse("pci", true);
    sound.comeBack();
    time.advance(1s);
    EXPECT_FALSE(sound.isOpen("pci"));
    sound.refuse("pci", false);
    sound.plug("usb", "Headset");  // any event tries again
    time.advance(1s);
    EXPECT_TRUE(sound.isOpen("pci"));
    hear("pci", 0.2F);
    const auto left = channel(stop(), 0);
    EXPECT_EQ(left.size(), 48000U * 62 + 2 * 4800);
    EXPECT_EQ(left[30 * 48000], 0.0F);
    EXPECT_EQ(left.back(), 0.2F);
}

TEST_F(AudioRecorderTest, ABufferFromTheFutureIsRefused) {
    start();
    hear("pci", 0.1F);
    const std::vector<float> samples(4800, 0.9F);
    sound.play("pci", {{48000, 1}, samples}, time.now() + 1h);
    EXPECT_EQ(channel(stop(), 0).size(), 4800U);
}

TEST(AudioLevelMonitorTest, PublishesTheRunningAverageTenTimesASecondAtMost) {
    testing::ManualRuntime time;
    AudioLevelMonitor monitor(time);
    monitor.updateMicrophoneLevel(1);
    EXPECT_FLOAT_EQ(monitor.microphoneLevel.get(), 0.3F);
    time.advance(50ms);
    monitor.updateMicrophoneLevel(1);
    EXPECT_FLOAT_EQ(monitor.microphoneLevel.get(), 0.3F);
    time.advance(50ms);
    monitor.updateMicrophoneLevel(0);
    EXPECT_FLOAT_EQ(monitor.microphoneLevel.get(), (0.3F + 0.7F * 0.3F) * 0.7F);
    const std::vector<float> quiet(100, 0.05F);
    EXPECT_NEAR(AudioLevelMonitor::bufferLevel({{48000, 2}, quiet}), 0.5F, 1e-5F);
    EXPECT_EQ(AudioLevelMonitor::bufferLevel({{48000, 2}, {}}), 0);
}

}  // namespace
}  // namespace tessivox::audio
