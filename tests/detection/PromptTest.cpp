#include <gtest/gtest.h>

#include "detection/ToastPlacement.h"
#include "support/RecordingWorld.h"

namespace tessivox::detection {
namespace {

using Lines = std::vector<std::string>;

constexpr auto kNotZoom = "Not a call — don't ask for Zoom Workplace";

struct StartPromptTest : ::testing::Test, RecordingWorld {
    void SetUp() override { applications.install(kZoom, "Zoom Workplace"); }
    /// What went out since a toast came up, without the detector's own.
    Lines answered(const std::string& button) {
        callStarts();
        journal.take();
        if (button.empty()) {
            time.advance(15s);
        } else {
            toasts.press(button);
        }
        EXPECT_FALSE(toasts.isUp());
        return journal.take();
    }
};

TEST_F(StartPromptTest, SaysWhatIsRecordedAndWhoIsInTheCall) {
    callStarts();
    EXPECT_EQ(toasts.last.systemImage, "phone.fill");
    EXPECT_EQ(toasts.last.title, "Record this call?");
    EXPECT_EQ(toasts.last.subtitle, "Mic + system audio · Zoom");
    EXPECT_EQ(toasts.last.announcement, "Call detected. Would you like to record this call?");
    EXPECT_EQ(toasts.last.countdown, 15s);
    ASSERT_EQ(toasts.buttons(), (Lines{"Record", "Dismiss", kNotZoom}));
    EXPECT_EQ(toasts.last.buttons[0].systemImage, "largecircle.fill.circle");
    EXPECT_EQ(toasts.last.buttons[0].kind, ToastButtonKind::primaryBlue);
    EXPECT_EQ(toasts.last.buttons[1].kind, ToastButtonKind::secondary);
    EXPECT_EQ(toasts.last.buttons[2].kind, ToastButtonKind::plain);
}

TEST_F(StartPromptTest, NamesTheSourcesThatTheSettingsSay) {
    StartCallToastView view;
    const auto subtitle = [&](bool microphone, bool systemAudio) {
        settings.recordMicrophone.set(microphone);
        settings.recordSystemAudio.set(systemAudio);
        return startCallToast(view, settings).subtitle;
    };
    EXPECT_EQ(subtitle(true, false), "Microphone · a call");
    EXPECT_EQ(subtitle(false, true), "System audio · a call");
    EXPECT_EQ(subtitle(false, false), "Audio · a call");
    EXPECT_EQ(startCallToast(view, settings).buttons.size(), 2);
}

TEST_F(StartPromptTest, ABrowsersCallCannotBeExcluded) {
    applications.install("org.mozilla.firefox", "Firefox");
    callStarts("org.mozilla.firefox");
    EXPECT_EQ(toasts.buttons(), (Lines{"Record", "Dismiss"}));
}

TEST_F(StartPromptTest, EachEndLeavesItsTrace) {
    EXPECT_EQ(answered("Dismiss"), (Lines{"(info prompt) Recording prompt declined",
                                          "recording_prompt_declined hold_sec=0 trigger_app=us.zoom.xos"}));
    callEnds();
    EXPECT_EQ(answered(""), (Lines{"recording_prompt_timeout hold_sec=15 trigger_app=us.zoom.xos",
                                   "(info prompt) Recording prompt auto-dismissed (timeout)"}));
    EXPECT_EQ(phase(), "idle");
    callEnds();
    EXPECT_EQ(answered(kNotZoom), (Lines{"recording_prompt_app_ignored hold_sec=0 trigger_app=us.zoom.xos",
                                         "setting_changed key=call_exclusion_added value=us.zoom.xos"}));
    time.advance(10s);
    EXPECT_FALSE(state.isCallDetected.get()) << "it is no call any more";
    time.advance(20s);
    EXPECT_EQ(phase(), "idle");
    EXPECT_FALSE(journal.has("(info prompt) Recording prompt auto-dismissed (timeout)"));
}

TEST_F(StartPromptTest, ComesUpOnlyOnceAndOnlyWhereSomethingMayBeRecorded) {
    canRecord = false;
    callStarts();
    EXPECT_FALSE(toasts.isUp());
    EXPECT_TRUE(journal.has("recording_prompt_shown hold_sec=0 trigger_app=us.zoom.xos")) << "that it was due is told";
    callEnds();
    canRecord = true;
    callStarts();
    callEnds();
    callStarts();
    EXPECT_EQ(toasts.shown, 1);
    time.advance(13s - CallDetector::kDebounceInterval);
    EXPECT_TRUE(toasts.isUp());
    time.advance(1s);
    EXPECT_FALSE(toasts.isUp()) << "fifteen seconds after the first call, not the second";
}

TEST_F(StartPromptTest, StaysWhenTheCallEndsAndStillRecords) {
    callStarts();
    callEnds();
    time.advance(10s);
    ASSERT_TRUE(toasts.isUp());
    toasts.press("Record");
    soon();
    EXPECT_EQ(phase(), "recording+");
}

struct StopPromptTest : ::testing::Test, RecordingWorld {
    /// A recording of 65 s whose call has just ended.
    void SetUp() override {
        begin();
        callStarts();
        time.advance(63s);
        callEnds();
        journal.take();
    }
};

TEST_F(StopPromptTest, SaysHowLongTheRecordingIsAndGoesOnCounting) {
    EXPECT_EQ(toasts.last.systemImage, "phone.down.fill");
    EXPECT_EQ(toasts.last.title, "Call ended — still recording");
    EXPECT_EQ(toasts.last.subtitle, "Recording · 01:05");
    EXPECT_EQ(toasts.last.announcement, "Call ended. Still recording. Stop and save, or keep recording?");
    ASSERT_EQ(toasts.buttons(), (Lines{"Stop & save", "Keep recording"}));
    EXPECT_EQ(toasts.last.buttons[0].systemImage, "stop.fill");
    EXPECT_EQ(toasts.last.buttons[0].kind, ToastButtonKind::primaryRed);
    time.advance(2s);
    EXPECT_EQ(toasts.last.subtitle, "Recording · 01:07");
}

TEST_F(StopPromptTest, KeepingTheRecordingIsToldAndSilenceKeepsItToo) {
    toasts.press("Keep recording");
    EXPECT_EQ(journal.take(), (Lines{"(info prompt) Stop recording prompt declined", "stop_prompt_declined"}));
    callStarts();
    callEnds();
    ASSERT_TRUE(toasts.isUp());
    journal.take();
    time.advance(14s);
    EXPECT_TRUE(toasts.isUp());
    time.advance(1s);
    EXPECT_FALSE(toasts.isUp());
    EXPECT_EQ(journal.take(), Lines{"(info prompt) Stop prompt auto-dismissed (kept recording)"});
    EXPECT_EQ(phase(), "recording+");
}

TEST_F(StopPromptTest, ASecondCallsEndNeitherAsksTwiceNorWaitsLonger) {
    callStarts();
    callEnds();
    EXPECT_EQ(toasts.shown, 1);
    time.advance(12s);
    EXPECT_TRUE(toasts.isUp());
    time.advance(1s);
    EXPECT_FALSE(toasts.isUp());
}

TEST(ToastPlacementTest, StandsInTheLowerRightCornerOfTheScreenWithThePointer) {
    const Screen withDockBelow{{{0, 0}, {1920, 1080}}, {{0, 30}, {1920, 1000}}};
    const Screen withDockAtTheLeft{{{1920, 0}, {1280, 1024}}, {{1990, 0}, {1210, 1024}}};
    const Screen above{{{0, -900}, {1440, 900}}, {{0, -900}, {1440, 900}}};
    const std::vector<Screen> screens{withDockBelow, withDockAtTheLeft, above};
    const ScreenSize toast{348, 200};
    const auto place = [&](const ScreenPoint& pointer, std::optional<std::size_t> mainScreen = {}) {
        return toastOrigin(screens, mainScreen, pointer, toast);
    };
    EXPECT_EQ(place({5, 5}), (ScreenPoint{1572, 830})) << "directly on the dock";
    EXPECT_EQ(place({1919, 1079}), (ScreenPoint{1572, 830}));
    EXPECT_EQ(place({1920, 0}), (ScreenPoint{2852, 764})) << "sixty above the edge";
    EXPECT_EQ(place({10, -1}), (ScreenPoint{1092, -260}));
    EXPECT_EQ(place({5000, 5000}, 1), (ScreenPoint{2852, 764})) << "the main screen";
    EXPECT_EQ(place({5000, 5000}, 7), (ScreenPoint{1572, 830})) << "the first screen";
    EXPECT_EQ(toastOrigin({}, 0, {0, 0}, toast), std::nullopt);
}

}  // namespace
}  // namespace tessivox::detection
