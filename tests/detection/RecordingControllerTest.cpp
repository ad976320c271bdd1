#include "detection/RecordingController.h"

#include <gtest/gtest.h>

#include "support/RecordingWorld.h"

namespace tessivox::detection {
namespace {

using Lines = std::vector<std::string>;
using testing::FakeAlerts;

struct RecordingControllerTest : ::testing::Test, RecordingWorld {};

TEST(CallTablesTest, ACallsStartDoesWhatTheSettingsSay) {
    struct Row {
        bool showsPrompt, startsByItself;
        std::string toast, phase;
    };
    for (const auto& row : {Row{true, false, "Record this call?", "idle"}, Row{true, true, "Record this call?", "idle"},
                            Row{false, true, "", "recording+"}, Row{false, false, "", "idle"}}) {
        SCOPED_TRACE(std::to_string(row.showsPrompt) + std::to_string(row.startsByItself));
        RecordingWorld world;
        world.set(row.showsPrompt, row.startsByItself);
        world.callStarts();
        EXPECT_TRUE(world.state.isCallDetected.get());
        EXPECT_EQ(world.toasts.title(), row.toast);
        EXPECT_EQ(world.phase(), row.phase);
    }
}

TEST(CallTablesTest, ACallsEndDoesWhatTheSettingsSayWhoeverStartedTheRecording) {
    struct Row {
        bool stopsByItself, startsByItself;
        std::string toast, phase;
    };
    for (const auto& row : {Row{true, false, "", "idle"}, Row{true, true, "", "idle"}, Row{false, true, "", "idle"},
                            Row{false, false, "Call ended — still recording", "recording+"}}) {
        SCOPED_TRACE(std::to_string(row.stopsByItself) + std::to_string(row.startsByItself));
        RecordingWorld world;
        world.begin();
        world.set(true, row.startsByItself, row.stopsByItself);
        world.callStarts();
        EXPECT_EQ(world.toasts.title(), "") << "a recording runs: nothing is asked";
        EXPECT_TRUE(world.journal.has("(info call) Call detected"));
        world.callEnds();
        EXPECT_FALSE(world.state.isCallDetected.get());
        EXPECT_EQ(world.toasts.title(), row.toast);
        EXPECT_EQ(world.phase(), row.phase);
    }
}

TEST_F(RecordingControllerTest, TellsTheLifeOfAnAutomaticRecordingInOrder) {
    set(false, true);
    callStarts();
    EXPECT_EQ(state.currentRecordingURL.get()->filename(), "2026-03-01_09-00-01.m4a");
    hear(3s);
    EXPECT_EQ(state.recordingDuration.get(), 3);
    EXPECT_EQ(journal.take(), (Lines{"call_detected all_apps=us.zoom.xos is_new_call=true trigger_app=us.zoom.xos",
                                     "(info call) Call detected", "(info call) Auto-starting recording",
                                     "(info recording) Starting recording source=auto",
                                     "recording_started audio_quality=medium mic=true source=auto system=true",
                                     "activation first_recording", "(info recording) Recording started source=auto"}));
    callEnds();
    soon();
    EXPECT_EQ(journal.take(),
              (Lines{"call_ended hold_sec=4 trigger_app=us.zoom.xos", "(info call) Call ended",
                     "recording_stopped duration_sec=4", "(info recording) Recording stopped duration=4",
                     "(info transcription) Transcription started file=2026-03-01_09-00-01.m4a"}));
    EXPECT_EQ(library.names(), "2026-03-01_09-00-01");
    EXPECT_EQ(transcribed, Lines{"2026-03-01_09-00-01.m4a 4 s"});
    EXPECT_EQ(state.currentRecordingURL.get(), std::nullopt);
    EXPECT_EQ(phase(), "idle");
}

TEST_F(RecordingControllerTest, TellsTheLifeOfARecordingThatWasAskedForInOrder) {
    callStarts();
    EXPECT_EQ(journal.take(),
              (Lines{"call_detected all_apps=us.zoom.xos is_new_call=true trigger_app=us.zoom.xos",
                     "(info call) Call detected", "recording_prompt_shown hold_sec=0 trigger_app=us.zoom.xos",
                     "(info prompt) Recording prompt shown"}));
    toasts.press("Record");
    EXPECT_FALSE(toasts.isUp());
    soon();
    EXPECT_EQ(phase(), "recording+");
    EXPECT_EQ(journal.take(),
              (Lines{"recording_prompt_accepted hold_sec=0 trigger_app=us.zoom.xos",
                     "(info prompt) Recording prompt accepted", "(info recording) Starting recording source=toast",
                     "recording_started audio_quality=medium mic=true source=toast system=true",
                     "activation first_recording", "(info recording) Recording started source=toast"}));
    hear(1s);
    callEnds();
    EXPECT_EQ(journal.take(), (Lines{"call_ended hold_sec=2 trigger_app=us.zoom.xos", "(info call) Call ended",
                                     "stop_prompt_shown", "(info prompt) Stop recording prompt shown"}));
    toasts.press("Stop & save");
    EXPECT_FALSE(toasts.isUp());
    soon();
    EXPECT_EQ(journal.take(),
              (Lines{"stop_prompt_accepted", "(info prompt) Stop recording prompt accepted",
                     "recording_stopped duration_sec=2", "(info recording) Recording stopped duration=2"}));
    EXPECT_EQ(library.names(), "2026-03-01_09-00-01");
    EXPECT_EQ(phase(), "idle");
}

TEST_F(RecordingControllerTest, ACallIsNewOnlyThirtySecondsAfterTheLast) {
    set(false, false);
    const auto isNew = [this](base::Duration after) {
        callEnds();
        time.advance(after - CallDetector::kDebounceInterval - kSoon);
        journal.take();
        callStarts();
        return journal.lines.at(0).find("is_new_call=true") != std::string::npos;
    };
    EXPECT_TRUE(isNew(60s)) << "the first of all";
    EXPECT_FALSE(isNew(20s));
    EXPECT_FALSE(isNew(30s));
    EXPECT_TRUE(isNew(30s + 1ms));
}

TEST_F(RecordingControllerTest, AStartThatFailsChangesNothingAndIsTold) {
    sound.refuse("speakers.monitor", true);
    EXPECT_EQ(text(begin(CaptureChoice::systemAudioOnly)), "Access was refused.");
    EXPECT_NE(lastError().find("Access was refused."), std::string::npos);
    EXPECT_EQ(journal.take(), (Lines{"(info recording) Starting recording source=manual",
                                     "(error error) Recording failed to start error=Access was refused."}));
    EXPECT_EQ(controller.sessionCapture.get(), std::nullopt);
    EXPECT_EQ(state.currentRecordingURL.get(), std::nullopt);
    EXPECT_EQ(phase(), "idle");
}

TEST_F(RecordingControllerTest, ASourceThatTheStarterChoseIsTheOnlyOneWhateverTheSettingsSay) {
    settings.recordMicrophone.set(false);
    settings.audioQuality.set(core::AudioQuality::high);
    begin(CaptureChoice::microphoneOnly);
    EXPECT_EQ(controller.sessionCapture.get(), (SessionCapture{true, false}));
    EXPECT_TRUE(journal.has("recording_started audio_quality=high mic=true source=manual system=false"));
    EXPECT_TRUE(sound.isOpen("pci") && !sound.isOpen("speakers.monitor"));
    end();
    EXPECT_EQ(controller.sessionCapture.get(), std::nullopt);
    begin(CaptureChoice::systemAudioOnly);
    EXPECT_EQ(controller.sessionCapture.get(), (SessionCapture{false, true}));
    end();
    begin();
    EXPECT_EQ(controller.sessionCapture.get(), std::nullopt);
    EXPECT_TRUE(journal.has("recording_started audio_quality=high mic=false source=manual system=true"));
}

TEST_F(RecordingControllerTest, APauseStopsTheClockAndResumingLetsItCountOn) {
    begin();
    hear(2s);
    EXPECT_EQ(controller.pauseRecording(), std::nullopt);
    hear(5s);
    EXPECT_EQ(phase(), "paused+");
    EXPECT_EQ(state.recordingDuration.get(), 2);
    EXPECT_EQ(controller.resumeRecording(), std::nullopt);
    hear(3s);
    EXPECT_EQ(phase(), "recording+");
    EXPECT_EQ(state.recordingDuration.get(), 5);
    EXPECT_TRUE(journal.has("recording_paused") && journal.has("recording_resumed"));
    controller.pauseRecording();
    end();
    EXPECT_EQ(phase(), "idle");
    EXPECT_EQ(transcribed, Lines{"2026-03-01_09-00-00.m4a 5 s"});
}

TEST_F(RecordingControllerTest, WhatDoesNotFitTheStateIsRefusedWithASentenceAndLeavesNoTrace) {
    const std::string nothing = "Nothing is being recorded: start a recording first.";
    EXPECT_EQ(controller.pauseRecording(), nothing);
    EXPECT_EQ(controller.resumeRecording(), nothing);
    EXPECT_EQ(text(end()), nothing);
    EXPECT_TRUE(journal.take().empty());
    begin();
    journal.take();
    EXPECT_EQ(controller.resumeRecording(), Refusal("The recording is not paused: it goes on."));
    controller.pauseRecording();
    EXPECT_EQ(controller.pauseRecording(), Refusal("The recording is paused already: resume it to go on."));
    EXPECT_EQ(journal.take(), Lines{"recording_paused"});
    time.stall("com.tessivox.stereo.encode", true);
    const auto saving = end();
    EXPECT_EQ(text(saving), "awaited");
    EXPECT_EQ(phase(), "idle+");
    EXPECT_EQ(text(end()), nothing);
    EXPECT_EQ(controller.pauseRecording(), nothing);
    EXPECT_EQ(text(begin()), "Recording is already in progress");
    time.stall("com.tessivox.stereo.encode", false);
    soon();
    EXPECT_EQ(text(saving), "done");
    EXPECT_EQ(phase(), "idle");
}

TEST_F(RecordingControllerTest, OnlyRecordingsOfThreeSecondsAreTranscribed) {
    for (const auto& [length, wants, expected] :
         std::vector<std::tuple<base::Duration, bool, std::size_t>>{{2900ms, true, 0}, {3s, true, 1}, {9s, false, 1}}) {
        settings.autoTranscribe.set(wants);
        begin();
        hear(length);
        end();
        time.advance(1s);
        EXPECT_EQ(transcribed.size(), expected) << length / 1ms;
    }
    EXPECT_EQ(library.storage->recordings.get().size(), 3);
}

TEST_F(RecordingControllerTest, ARecordingWithoutASoundLeavesNothingBehind) {
    begin();
    journal.take();
    EXPECT_EQ(text(end()), "done");
    EXPECT_EQ(journal.take(),
              (Lines{"recording_stopped duration_sec=0", "(info recording) Recording stopped duration=0"}));
    EXPECT_EQ(library.names(), "");
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_EQ(lastError(), "");
}

TEST_F(RecordingControllerTest, ARecordingThatCannotBeEncodedIsToldAndItsSoundCanBeShown) {
    encoders.refusedChannels = 2;
    begin();
    hear(4s);
    journal.take();
    EXPECT_EQ(text(end()), "done") << "it does not wait until somebody has read it";
    EXPECT_EQ(phase(), "idle");
    ASSERT_TRUE(alerts.isOpen());
    const auto& alert = alerts.shown.back();
    EXPECT_EQ(alert.message, "Recording couldn’t be finalized");
    EXPECT_EQ(alert.text,
              "The audio conversion failed, but your raw recording was preserved and can be recovered:\n\n"
              "2026-03-01_09-00-00.caf");
    EXPECT_EQ(alert.buttons, (Lines{"Show in File Manager", "OK"}));
    EXPECT_TRUE(alert.style == core::AlertStyle::critical && alert.safeChoice == 1);
    EXPECT_EQ(
        journal.take(),
        (Lines{"recording_stopped duration_sec=4", "(info recording) Recording stopped duration=4",
               "recording_finalize_failed duration_sec=4 rescued=true", "(error error) Recording finalize failed"}));
    alerts.choose("Show in File Manager");
    soon();
    EXPECT_EQ(revealed, Lines{"2026-03-01_09-00-00.caf"});
    EXPECT_EQ(library.names(), "");
    EXPECT_TRUE(transcribed.empty());
}

TEST_F(RecordingControllerTest, ARecordingThatCannotEvenBeMovedIsToldToo) {
    encoders.refusedChannels = 2;
    begin();
    hear(4s);
    disk.failFrom(1, testing::CrashingFiles::Fault::ioError, testing::Library::kFolder);
    end();
    EXPECT_TRUE(journal.has("recording_finalize_failed duration_sec=4 rescued=false"));
    ASSERT_TRUE(alerts.isOpen());
    EXPECT_EQ(alerts.shown.back().buttons, Lines{"OK"});
    alerts.choose("OK");
    soon();
    EXPECT_TRUE(revealed.empty());
}

TEST_F(RecordingControllerTest, ARecordingWithHolesIsFiledAndTheUserIsTold) {
    encoders.refusedChannels = 2;  // so that the file is made of what is on the disk
    begin();
    hear(2s);
    disk.failFrom(1, testing::CrashingFiles::Fault::ioError, kIncomplete);
    hear(2s);
    disk.heal();
    encoders.refusedChannels = 0;
    hear(2s);
    end();
    EXPECT_NE(lastError().find("missing from the recording"), std::string::npos) << lastError();
    EXPECT_EQ(library.names(), "2026-03-01_09-00-00");
}

TEST_F(RecordingControllerTest, AStopToastGoesWhenTheRecordingIsStoppedElsewhere) {
    begin();
    callStarts();
    callEnds();
    ASSERT_TRUE(toasts.isUp());
    end();
    EXPECT_FALSE(toasts.isUp());
    EXPECT_FALSE(journal.has("stop_prompt_accepted"));
    time.advance(20s);
    EXPECT_FALSE(journal.has("(info prompt) Stop prompt auto-dismissed (kept recording)"));
}

TEST_F(RecordingControllerTest, ARecordingStoppedDuringItsCallIsNotAskedAboutAtTheCallsEnd) {
    callStarts();
    toasts.press("Record");
    soon();
    end();
    callEnds();
    EXPECT_EQ(toasts.shown, 1);
    EXPECT_FALSE(journal.has("stop_prompt_shown"));
}

/// What arrives while the second source takes five seconds to come up.
struct SlowStartTest : RecordingControllerTest {
    void SetUp() override { sound.delay("speakers.monitor", 5s); }
    void comesUp() { time.advance(5s); }
};

TEST_F(SlowStartTest, AStopIsCarriedOutOnceTheStartIsDone) {
    const auto start = begin();
    EXPECT_EQ(phase(), "idle+");
    const auto stop = end();
    EXPECT_EQ(text(start) + " " + text(stop), "awaited awaited");
    comesUp();
    EXPECT_EQ(text(start) + " " + text(stop), "done done");
    EXPECT_EQ(phase(), "idle");
    EXPECT_EQ(sound.openStreams(), 0);
    EXPECT_TRUE(journal.has("recording_stopped duration_sec=0"));
}

TEST_F(SlowStartTest, AStopIsForgottenIfTheStartFails) {
    begin();
    const auto stop = end();
    sound.refuse("speakers.monitor", true);
    comesUp();
    EXPECT_EQ(text(stop), "Nothing is being recorded: start a recording first.");
    EXPECT_EQ(phase(), "idle");
    sound.refuse("speakers.monitor", false);
    begin();
    comesUp();
    EXPECT_EQ(phase(), "recording+");
}

TEST_F(SlowStartTest, ACallThatEndsMeanwhileIsAnsweredOnceTheStartIsDone) {
    set(false, true);
    callStarts();
    EXPECT_EQ(phase(), "idle+");
    callEnds();
    EXPECT_EQ(phase(), "idle+");
    comesUp();
    EXPECT_EQ(phase(), "idle") << "it was to stop by itself";

    set(true, false);
    callStarts();
    toasts.press("Record");
    callEnds();
    EXPECT_FALSE(toasts.isUp());
    comesUp();
    EXPECT_EQ(phase(), "recording+");
    EXPECT_EQ(toasts.title(), "Call ended — still recording");
}

TEST_F(SlowStartTest, ACallThatIsBackByThenDidNotEnd) {
    set(true, false, true);
    begin();
    callStarts();
    callEnds();
    callStarts();
    comesUp();
    EXPECT_EQ(phase(), "recording+");
}

TEST_F(SlowStartTest, ASecondStartIsRefusedAndTheStopIsCarriedOutAllTheSame) {
    begin();
    const auto stop = end();
    EXPECT_EQ(text(begin()), "Recording is already in progress");
    EXPECT_NE(lastError().find("Recording is already in progress"), std::string::npos);
    EXPECT_EQ(text(stop) + " " + phase(), "awaited idle+") << "the first start is still awaited";
    comesUp();
    EXPECT_EQ(text(stop) + " " + phase(), "done idle");
    begin();
    comesUp();
    EXPECT_EQ(text(begin()), "Recording is already in progress");
    EXPECT_EQ(phase(), "recording+");
}

}  // namespace
}  // namespace tessivox::detection
