#include "app/RecordCommand.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/FakeConsole.h"
#include "app/FakeDevices.h"
#include "base/Error.h"
#include "core/JsonPreferences.h"
#include "core/PreferencesOverlay.h"
#include "support/CrashingFiles.h"
#include "support/ManualRuntime.h"
#include "support/QuietDesktop.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;
using Path = std::filesystem::path;

const Path kHome = "/home/user";
const Path kSettings = kHome / ".config/Tessivox/settings.json";
const Path kIncomplete = kHome / ".local/share/Tessivox/Incomplete";
const Path kRecordings = kHome / "Documents/TessivoxRecordings";
const base::StandardFolders kFolders{kHome / "Documents", kHome / ".local/share", kHome / ".config", "/tmp"};

/// A recorder that starts and stops as slowly as it is told to.
struct FakeRecorder {
    explicit FakeRecorder(base::Scheduler& loop) : scheduler(loop) {}

    base::Scheduler& scheduler;
    std::vector<std::string> calls;
    base::Duration startTakes{};
    base::Duration stopTakes{};
    std::optional<std::string> startFails;
    double progress = 0;
    audio::RecordingStopOutcome outcome = audio::Saved{kRecordings / "now.m4a"};

    base::Task<Path> start(std::optional<Path> output) {
        calls.emplace_back("start");
        co_await scheduler.sleep(startTakes);
        if (startFails) throw base::Error("test", 1, *startFails);
        co_return output.value_or(kRecordings / "now.m4a");
    }
    base::Task<audio::RecordingStopOutcome> stop() {
        calls.emplace_back("stop");
        co_await scheduler.sleep(stopTakes);
        co_return outcome;
    }
    RecordingControls controls() {
        return {[this](auto output) { return start(std::move(output)); }, [this] { return stop(); },
                [this] { calls.emplace_back("pause"); }, [this] { calls.emplace_back("resume"); },
                [this] { return progress; }};
    }
};

class RecordCommandTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles files;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    core::JsonPreferences store{files, time, kSettings, [](const auto& sentence) { ADD_FAILURE() << sentence; }};
    core::PreferencesOverlay overlay{store};
    core::AppSettings settings{overlay, files, kFolders, chooser, loginItem};
    core::AppState state{time};
    FakeDevices devices;
    base::Observable<float> microphoneLevel{0.5F};
    base::Observable<float> systemAudioLevel{1.0F};
    FakeRecorder recorder{time};
    FakeConsole console;
    std::optional<ExitCode> ended;
    bool wasAbandoned = false;
    std::unique_ptr<RecordCommand> command;

    void record(RecordOptions options = {}) {
        const RecordCommand::Endings endings{[this](ExitCode code) { ended = code; }, [this] { wasAbandoned = true; }};
        command = std::make_unique<RecordCommand>(
            std::move(options),
            RecordCommand::Parts{time, files, settings, state, devices, microphoneLevel, systemAudioLevel,
                                 recorder.controls(), kIncomplete, console},
            endings);
        time.settle();
    }
    void press(char key) {
        console.keys.emit(key);
        time.settle();
    }
    void interrupt() {
        command->interrupt();
        time.settle();
    }
};

TEST_F(RecordCommandTest, LeavesASoundRecordingWithoutAWordToWhatIsToTranscribeIt) {
    RecordOptions options;
    options.transcribes = true;
    record(options);
    press('q');
    EXPECT_EQ(ended, ExitCode::done);
    EXPECT_EQ(command->savedForMore(), kRecordings / "now.m4a");
    EXPECT_EQ(console.output, "");

    recorder.outcome = audio::Saved{kRecordings / "now.m4a", 0.5};
    record(options);
    press('q');
    EXPECT_EQ(ended, ExitCode::failed);
    EXPECT_FALSE(command->savedForMore());
    EXPECT_EQ(console.output, (kRecordings / "now.m4a\n").string());
}

TEST_F(RecordCommandTest, SavesAfterQAndPrintsNothingButThePathToStandardOutput) {
    record();
    time.advance(10s);
    EXPECT_FALSE(ended);
    press('q');
    EXPECT_EQ(ended, ExitCode::done);
    EXPECT_EQ(console.output, (kRecordings / "now.m4a").string() + "\n");
    EXPECT_TRUE(console.messages.empty());
    EXPECT_EQ(console.statuses.back(), "") << "the line is removed";
    EXPECT_EQ(recorder.calls, (std::vector<std::string>{"start", "stop"}));
}

TEST_F(RecordCommandTest, StopsOnceAsMuchSoundAsAskedForIsRecorded) {
    RecordOptions options;
    options.length = 30s;
    recorder.startTakes = 3s;
    record(options);
    time.advance(3s + 20s);
    press('p');
    time.advance(1h);
    press('p');
    time.advance(9900ms);
    EXPECT_FALSE(ended);
    time.advance(100ms);
    EXPECT_EQ(ended, ExitCode::done);
    EXPECT_EQ(recorder.calls, (std::vector<std::string>{"start", "pause", "resume", "stop"}));
}

TEST_F(RecordCommandTest, ShowsTimeAndLevelsOnlyInATerminal) {
    record();
    time.advance(65s);
    EXPECT_EQ(console.statuses.back(),
              "Recording 01:05  mic [#######.......]  system [##############]  p pause, q stop");
    console.isTerminal = false;
    console.statuses.clear();
    record();
    time.advance(10s);
    interrupt();
    EXPECT_TRUE(console.messages.empty());
    for (const auto& line : console.statuses) EXPECT_EQ(line, "");
}

TEST_F(RecordCommandTest, StopsRightAfterAStartThatWasInterrupted) {
    recorder.startTakes = 5s;
    record();
    interrupt();
    EXPECT_EQ(recorder.calls.size(), 1U);
    time.advance(5s);
    EXPECT_EQ(ended, ExitCode::done);
    EXPECT_EQ(recorder.calls, (std::vector<std::string>{"start", "stop"}));
}

TEST_F(RecordCommandTest, LeavesAndNamesTheTemporaryFileAtTheSecondInterruption) {
    files.put(kIncomplete / "stereo_now.caf", "x");
    recorder.stopTakes = 60s;
    record();
    interrupt();
    time.advance(2s);
    EXPECT_FALSE(wasAbandoned);
    interrupt();
    EXPECT_TRUE(wasAbandoned);
    EXPECT_TRUE(console.said((kIncomplete / "stereo_now.caf").string()));
    EXPECT_FALSE(ended);
    EXPECT_EQ(console.output, "");
}

TEST_F(RecordCommandTest, WarnsBeforeAnInterruptionEndsASaveThatQBegan) {
    recorder.stopTakes = 60s;
    record();
    press('q');
    time.advance(1s);
    EXPECT_EQ(console.statuses.back(), "Saving 00:00  (00:01)");
    press('q');
    interrupt();
    EXPECT_TRUE(console.said("being saved"));
    EXPECT_FALSE(wasAbandoned);
    time.advance(60s);
    EXPECT_EQ(ended, ExitCode::done);
}

TEST_F(RecordCommandTest, TellsHowARecordingThatIsNotWholeEnded) {
    struct Case {
        audio::RecordingStopOutcome outcome;
        ExitCode code;
        std::string output;
        std::string message;
    };
    const std::vector<Case> cases{
        {audio::Saved{"/m/a.m4a", 2.25}, ExitCode::failed, "/m/a.m4a\n", "2.2 seconds"},
        {audio::ConversionFailed{"/m/a.caf"}, ExitCode::failed, "", "/m/a.caf"},
        {audio::ConversionFailed{}, ExitCode::failed, "", "tessivox recover"},
        {audio::Empty{}, ExitCode::nothingRecorded, "", "Nothing was recorded"},
    };
    for (const auto& expected : cases) {
        console.output.clear();
        recorder.outcome = expected.outcome;
        record();
        interrupt();
        EXPECT_EQ(ended, expected.code);
        EXPECT_EQ(console.output, expected.output);
        EXPECT_TRUE(console.said(expected.message)) << expected.message;
    }
}

TEST_F(RecordCommandTest, PassesOnEachErrorOfARunningRecordingOnceAndGoesOn) {
    record();
    for (const auto* text : {"the disk is full", "the disk is full", "the server is gone"})
        state.lastError.set(core::AppError(core::AppError::RecordingFailed{text}));
    EXPECT_EQ(console.messages,
              (std::vector<std::string>{"Recording failed: the disk is full", "Recording failed: the server is gone"}));
    EXPECT_FALSE(ended);
}

TEST_F(RecordCommandTest, FailsWithTheSentenceOfARecorderThatCannotStart) {
    recorder.startFails = "The microphone is in use.";
    record();
    EXPECT_EQ(ended, ExitCode::failed);
    EXPECT_EQ(console.messages, (std::vector<std::string>{"The microphone is in use."}));
}

TEST_F(RecordCommandTest, LaysOptionsOverTheSettingsAndStoresNone) {
    RecordOptions options;
    options.quality = core::AudioQuality::high;
    options.microphone = MicrophoneChoice{MicrophoneChoice::Kind::named, "USB Mic"};
    options.recordsSystemAudio = false;
    options.savesSeparateTracks = true;
    record(options);
    EXPECT_EQ(settings.audioQuality.get(), core::AudioQuality::high);
    EXPECT_EQ(settings.selectedMicrophoneID.get(), "usb");
    EXPECT_FALSE(settings.recordSystemAudio.get());
    EXPECT_TRUE(settings.saveSeparateTracks.get());
    EXPECT_FALSE(files.exists(kSettings));
}

TEST_F(RecordCommandTest, TakesTheMicrophoneThatTheOptionAsksForWhateverIsStored) {
    store.set("recordMicrophone", false);
    store.set("selectedMicrophoneID", std::string("usb"));
    RecordOptions options;
    options.microphone = MicrophoneChoice{};
    record(options);
    EXPECT_TRUE(settings.recordMicrophone.get());
    EXPECT_EQ(settings.selectedMicrophoneID.get(), "");
}

TEST_F(RecordCommandTest, RefusesToRecordNothing) {
    store.set("recordMicrophone", false);
    RecordOptions options;
    options.recordsSystemAudio = false;
    record(options);
    EXPECT_EQ(ended, ExitCode::usage);
    EXPECT_TRUE(console.said("Both sources are off"));
    EXPECT_TRUE(recorder.calls.empty());
}

TEST_F(RecordCommandTest, StartsNothingWithoutAServerItsMicrophoneOrAFolder) {
    RecordOptions unknown;
    unknown.microphone = MicrophoneChoice{MicrophoneChoice::Kind::named, "Nobody"};
    record(unknown);
    EXPECT_EQ(ended, ExitCode::failed);
    EXPECT_TRUE(console.said("Built-in"));

    RecordOptions elsewhere;
    elsewhere.output = "/none/a.m4a";
    record(elsewhere);
    EXPECT_EQ(ended, ExitCode::failed);
    EXPECT_TRUE(console.said("There is no folder \"/none\""));

    devices.now = {};
    record();
    EXPECT_EQ(ended, ExitCode::failed);
    EXPECT_TRUE(console.said("No sound server"));
    EXPECT_TRUE(recorder.calls.empty());
}

}  // namespace
}  // namespace tessivox::app
