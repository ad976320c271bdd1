#include "detection/CallDetector.h"

#include "DetectionTest.h"

namespace tessivox::detection {
namespace {

class CallDetectorTest : public DetectionTest {};

TEST_F(CallDetectorTest, CallsItACallAfterOneSecondOfUse) {
    watch();
    inputUse.open("org.example.Meet");
    time.advance(999ms);
    EXPECT_FALSE(isCall());
    time.advance(1ms);
    EXPECT_TRUE(isCall());
    EXPECT_EQ(told, (Told{"started org.example.Meet"}));
    inputUse.close("org.example.Meet");
    time.advance(999ms);
    EXPECT_TRUE(isCall());
    time.advance(1ms);
    EXPECT_FALSE(isCall());
    EXPECT_EQ(told, (Told{"started org.example.Meet", "ended"}));
}

TEST_F(CallDetectorTest, FindsACallThatWasUnderWayAtTheStart) {
    inputUse.open("org.example.Meet");
    watch();
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, LeavesNoTraceOfAFlickerInEitherState) {
    watch();
    inputUse.open("org.example.Meet");
    time.advance(900ms);
    inputUse.close("org.example.Meet");
    time.advance(10s);
    EXPECT_TRUE(told.empty());

    inputUse.open("org.example.Meet");
    time.advance(1s);
    told.clear();
    inputUse.close("org.example.Meet");
    time.advance(999ms);
    inputUse.open("org.example.Meet");
    time.advance(10s);
    EXPECT_TRUE(isCall());
    EXPECT_TRUE(told.empty());
}

TEST_F(CallDetectorTest, CountsTheSecondFromTheLastEvent) {
    watch();
    inputUse.open("org.example.Meet");
    time.advance(800ms);
    inputUse.open("org.example.Other");
    time.advance(999ms);
    EXPECT_FALSE(isCall());
    time.advance(1ms);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, TakesNeitherItselfNorTheSystemForACall) {
    inputUse.open("com.tessivox.Tessivox");
    inputUse.open("com.apple.replayd");
    inputUse.open("com.apple.CoreSpeech.helper");
    watch();
    time.advance(10s);
    EXPECT_FALSE(isCall());
    inputUse.open("com.apple.CoreSpeechless");
    time.advance(1s);
    EXPECT_EQ(told, (Told{"started com.apple.CoreSpeechless"})) << "it only shares its first letters with an entry";
}

TEST_F(CallDetectorTest, TakesAnUnknownProcessForACall) {
    watchCallOf("unknown.4711");
    EXPECT_EQ(detector->excludableApp(), std::nullopt);
}

TEST_F(CallDetectorTest, LeavesOutAHelperOfAnExcludedApplication) {
    applications.install("com.obsproject.obs-studio", "OBS");
    applications.own(inputUse.open("org.example.plugin"), "com.obsproject.obs-studio");
    watch();
    time.advance(10s);
    EXPECT_FALSE(isCall());
}

TEST_F(CallDetectorTest, NamesCallApplicationsBeforeBrowsersBeforeAllOthersAndEachByItsLetters) {
    for (const auto* app : {"aaa.first", "org.mozilla.firefox", "com.google.Chrome.helper", "com.apple.WebKitNet",
                            "org.example.TeleMost.app", "us.zoom.xos", "us.zoom.xos"})
        inputUse.open(app);
    watch();
    time.advance(1s);
    EXPECT_EQ(told, (Told{"started org.example.TeleMost.app"}));
    EXPECT_EQ(detector->triggeringApps(), (Told{"org.example.TeleMost.app", "us.zoom.xos", "com.apple.WebKitNet",
                                                "com.google.Chrome.helper", "org.mozilla.firefox"}));
}

TEST_F(CallDetectorTest, KeepsWhomTheCallIsNamedAfterUntilTheNextOneBegins) {
    watchCallOf("com.google.Chrome");
    inputUse.open("us.zoom.xos");
    time.advance(10s);
    EXPECT_EQ(detector->triggeringApps(), (Told{"com.google.Chrome"}));
    inputUse.setProcesses({});
    time.advance(1s);
    EXPECT_EQ(detector->callContextProperties(), (telemetry::Parameters{{"trigger_app", "com.google.Chrome"}}));
    inputUse.open("us.zoom.xos");
    time.advance(1s);
    EXPECT_EQ(told, (Told{"ended", "started us.zoom.xos"}));
}

TEST_F(CallDetectorTest, NamesTheCallAfterWhoeverIsThereWhenItBegins) {
    watch();
    inputUse.open("org.example.First");
    time.advance(500ms);
    inputUse.setProcesses({{7, "org.example.Second"}});
    time.advance(1s);
    EXPECT_EQ(told, (Told{"started org.example.Second"}));
}

TEST_F(CallDetectorTest, FindsTheEndThatNobodyTellsOfWithinAPollAndASecond) {
    watchCallOf("us.zoom.xos");
    inputUse.slip({{99, "com.tessivox.Tessivox"}});
    time.advance(5999ms);
    EXPECT_TRUE(isCall());
    time.advance(1ms);
    EXPECT_FALSE(isCall());
}

TEST_F(CallDetectorTest, LooksAtNothingByItselfWhileThereIsNoCall) {
    watchCallOf("us.zoom.xos");
    inputUse.setProcesses({});
    time.advance(1s);
    inputUse.slip({{7, "us.zoom.xos"}});
    time.advance(1h);
    EXPECT_FALSE(isCall());
    inputUse.tell();
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, TakesADeviceThatDoesNotRunForNoUse) {
    inputUse.open("us.zoom.xos");
    inputUse.setRunning(false);
    watch();
    time.advance(10s);
    EXPECT_FALSE(isCall());
    inputUse.setRunning(true);
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, FollowsTheDefaultInputInMidCall) {
    watchCallOf("us.zoom.xos");
    inputUse.setDefault(2);
    EXPECT_EQ(inputUse.watchers(), 1) << "the old device is no longer watched";
    time.advance(10s);
    EXPECT_TRUE(isCall());
    EXPECT_TRUE(told.empty());
    inputUse.setProcesses({});
    time.advance(1s);
    EXPECT_EQ(told, (Told{"ended"}));
}

TEST_F(CallDetectorTest, WaitsForTheNextDeviceWhenTheDefaultInputIsGone) {
    watch();
    inputUse.setDefault(0);
    EXPECT_EQ(inputUse.watchers(), 0);
    inputUse.open("us.zoom.xos");
    time.advance(10s);
    EXPECT_FALSE(isCall());
    inputUse.setDefault(3);
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, StaysInertWhereNothingCanBeWatchedAtTheStart) {
    inputUse.setDefault(std::nullopt);
    watch();
    inputUse.setDefault(1);
    inputUse.open("us.zoom.xos");
    time.advance(10s);
    EXPECT_FALSE(isCall());
}

TEST_F(CallDetectorTest, ChecksOnceEvenIfTheDeviceCannotBeWatched) {
    inputUse.open("us.zoom.xos");
    inputUse.refuseWatching();
    watch();
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

TEST_F(CallDetectorTest, LetsACallOutliveALostSoundServer) {
    watchCallOf("us.zoom.xos");
    inputUse.loseServer();
    inputUse.setProcesses({});
    time.advance(9s);
    inputUse.open(1000, "us.zoom.xos");
    inputUse.regainServer();
    time.advance(10s);
    EXPECT_TRUE(isCall());
    EXPECT_TRUE(told.empty());
}

TEST_F(CallDetectorTest, TellsHowLongTheCallHasLasted) {
    watch();
    EXPECT_EQ(detector->callContextProperties(), (telemetry::Parameters{{"trigger_app", "unknown"}}));
    inputUse.open("us.zoom.xos");
    time.advance(1s);
    time.advance(61'999ms);
    EXPECT_EQ(detector->callContextProperties(),
              (telemetry::Parameters{{"trigger_app", "us.zoom.xos"}, {"hold_sec", "61"}}));
    inputUse.setProcesses({});
    time.advance(1s);
    EXPECT_EQ(signals.all, (Told{"call_ended hold_sec=62 trigger_app=us.zoom.xos"}));
}

TEST_F(CallDetectorTest, HasTheStateThatItTellsOfInTheMomentOfTelling) {
    watch();
    std::vector<bool> seen;
    const auto onStart = detector->callStarted.observe([&](const auto&) { seen.push_back(isCall()); });
    const auto onEnd = detector->callEnded.observe([&] { seen.push_back(isCall()); });
    inputUse.open("us.zoom.xos");
    time.advance(1s);
    inputUse.setProcesses({});
    time.advance(1s);
    EXPECT_EQ(seen, (std::vector{true, false}));
}

TEST_F(CallDetectorTest, MayBeDestroyedByWhoeverHearsOfACallOrWhileOneIsPending) {
    watch();
    starts = detector->callStarted.observe([&](const auto&) { detector.reset(); });
    inputUse.open("us.zoom.xos");
    time.advance(1s);
    EXPECT_FALSE(detector.has_value());
    watch();
    time.advance(500ms);
    detector.reset();
    EXPECT_EQ(inputUse.watchers(), 0);
    inputUse.setProcesses({});
    time.advance(10s);
    EXPECT_TRUE(told.empty());
}

TEST_F(CallDetectorTest, ShowsTheNameOfTheApplicationAtHand) {
    const auto chrome = inputUse.open("com.google.Chrome");
    const auto zoom = inputUse.open("us.zoom.xos");
    const auto recorder = inputUse.open("com.apple.VoiceMemos");
    watch();
    time.advance(1s);
    EXPECT_EQ(detector->callDisplayName(), std::nullopt);
    applications.run(recorder, {true, true, "Voice Memos"});
    EXPECT_EQ(detector->callDisplayName(), std::nullopt) << "an excluded application is no call";
    applications.run(chrome, {true, false, "Chrome"});
    EXPECT_EQ(detector->callDisplayName(), "Chrome");
    applications.run(zoom, {true, false, "Zoom"});
    EXPECT_EQ(detector->callDisplayName(), "Chrome") << "it is the first, though not the one held responsible";
    applications.run(zoom, {true, true, "Zoom"});
    EXPECT_EQ(detector->callDisplayName(), "Zoom") << "its window has the focus";
    applications.run(chrome, {false, true, "Chrome"});
    applications.run(zoom, {true, false, ""});
    EXPECT_EQ(detector->callDisplayName(), std::nullopt);
}

TEST_F(CallDetectorTest, OffersTheApplicationThatAHelperBelongsTo) {
    const auto helper = inputUse.open("org.example.meet.helper");
    applications.own(helper, "org.example.Meet");
    watch();
    EXPECT_EQ(detector->excludableApp(), std::nullopt) << "it is not installed";
    applications.install("org.example.Meet", "Meet");
    EXPECT_EQ(detector->excludableApp(), (CallDetector::App{"org.example.Meet", "Meet"}));
    applications.install("org.example.Meet", "");
    EXPECT_EQ(detector->excludableApp(), std::nullopt);
    applications.run(helper, {true, false, "Meet as it runs"});
    EXPECT_EQ(detector->excludableApp(), (CallDetector::App{"org.example.Meet", "Meet as it runs"}));
}

TEST_F(CallDetectorTest, NeverOffersABrowserNorAnythingBeforeTheFirstCall) {
    watch();
    EXPECT_EQ(detector->excludableApp(), std::nullopt);
    applications.install("org.mozilla.firefox", "Firefox");
    applications.own(inputUse.open("org.mozilla.firefox"), "org.mozilla.firefox");
    EXPECT_EQ(detector->excludableApp(), std::nullopt);
    inputUse.setProcesses({});
    applications.own(inputUse.open("plugin-container"), "org.mozilla.firefox");
    EXPECT_EQ(detector->excludableApp(), std::nullopt);
}

TEST_F(CallDetectorTest, EndsTheCallOfAnApplicationThatIsExcludedMeanwhile) {
    watchCallOf("us.zoom.xos");
    detector->addIgnoredApp("us.zoom", "Zoom");
    time.advance(5999ms);
    EXPECT_TRUE(isCall());
    time.advance(1ms);
    EXPECT_EQ(told, (Told{"ended"}));
}

TEST_F(CallDetectorTest, HeedsExclusionsThatAnotherProcessStores) {
    watchCallOf("us.zoom.xos");
    preferences.set("callDetectionIgnoredApps", std::map<std::string, std::string>{{"us.zoom.xos", "Zoom"}});
    time.advance(6s);
    EXPECT_EQ(told, (Told{"ended"}));
    preferences.set("callDetectionIgnoredApps", std::nullopt);
    inputUse.tell();
    time.advance(1s);
    EXPECT_TRUE(isCall());
}

}  // namespace
}  // namespace tessivox::detection
