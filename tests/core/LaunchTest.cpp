#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/TessivoxApp.h"
#include "support/FakeAlerts.h"
#include "support/ManualRuntime.h"
#include "support/NullFiles.h"
#include "support/QuietDesktop.h"
#include "support/SentSignals.h"

namespace tessivox::core {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

class LaunchTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::SentSignals signals;
    testing::NullFiles files;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    testing::FakeAlerts alerts;
    AppSettings settings{signals.store, files, {}, chooser, loginItem};
    AppState state{time};
    QuitGuard guard{state, alerts};
    LaunchSteps steps;
    Names ran;
    int onboardings = 0;
    int suppressions = 0;
    int ends = 0;
    std::unique_ptr<TessivoxApp> app;

    void plugIn(LaunchStep step) {
        steps[step] = [this, step] { ran.emplace_back(nameOf(step)); };
    }
    void construct() {
        const AppDelegate::Parts delegate{time, signals.analytics, guard,
                                          [this] {
                                              ++suppressions;
                                              return base::Subscription([this] { --suppressions; });
                                          },
                                          [this] { ++ends; }};
        app = std::make_unique<TessivoxApp>(TessivoxApp::Parts{settings, delegate, [this] { ++onboardings; }}, steps);
    }
    void launch() {
        construct();
        app->delegate().applicationDidFinishLaunching();
    }
};

TEST_F(LaunchTest, RunsTheStepsInTheirOrderWhateverTheOrderTheyWerePluggedIn) {
    const std::vector<LaunchStep> before{LaunchStep::createDelegate, LaunchStep::setUpState,
                                         LaunchStep::startCrashReporting, LaunchStep::startAnalytics,
                                         LaunchStep::createUpdateManager};
    const std::vector<LaunchStep> after{
        LaunchStep::createStatusItem,    LaunchStep::prepareStatusButton,    LaunchStep::createPopover,
        LaunchStep::subscribeIcon,       LaunchStep::applyDockPolicy,        LaunchStep::followDockPolicy,
        LaunchStep::startRecovery,       LaunchStep::resumeTranscriptions,   LaunchStep::wireRecordingController,
        LaunchStep::sendPendingFeedback, LaunchStep::sendPendingRegistration};
    Names expected;
    for (auto step = after.rbegin(); step != after.rend(); ++step) plugIn(*step);
    for (const auto step : before) {
        plugIn(step);
        expected.emplace_back(nameOf(step));
    }
    construct();
    EXPECT_EQ(ran, expected);
    for (const auto step : after) expected.emplace_back(nameOf(step));
    app->delegate().applicationDidFinishLaunching();
    EXPECT_EQ(ran, expected);
}

TEST_F(LaunchTest, SendsItsFirstSignalBetweenAnalyticsAndUpdatesAndItsLastAtTheEnd) {
    Names seen;
    steps[LaunchStep::startAnalytics] = [&] { seen = signals.all; };
    steps[LaunchStep::createUpdateManager] = [&] { EXPECT_EQ(signals.all, Names{"app_launched"}); };
    launch();
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(signals.all, Names{"app_launched"});
    app->delegate().terminateNow();
    app->delegate().terminateNow();
    EXPECT_EQ(signals.all, (Names{"app_launched", "app_terminated"}));
    EXPECT_EQ(ends, 1);
}

TEST_F(LaunchTest, DoesWithoutStepsThatNobodyPluggedInAndWithoutWindows) {
    const AppDelegate::Parts delegate{time, signals.analytics, guard, nullptr, nullptr};
    TessivoxApp bare({settings, delegate, nullptr}, steps);
    bare.delegate().applicationDidFinishLaunching();
    time.advance(5s);
    EXPECT_EQ(signals.all, Names{"app_launched"});
}

TEST_F(LaunchTest, TellsOfAStepThatFailsAndGoesOnWithTheOthers) {
    std::string failures;
    steps.onFailure = [&](LaunchStep step, const std::exception_ptr& error) {
        failures += std::string(nameOf(step)) + ": " + base::describe(error) + "\n";
    };
    steps[LaunchStep::createUpdateManager] = [] { throw std::runtime_error("no network"); };
    steps[LaunchStep::createPopover] = [] { throw std::runtime_error("no screen"); };
    plugIn(LaunchStep::startRecovery);
    launch();
    EXPECT_EQ(failures, "createUpdateManager: no network\ncreatePopover: no screen\n");
    EXPECT_EQ(ran, Names{"startRecovery"});
    time.advance(1500ms);
    EXPECT_EQ(onboardings, 1);
}

TEST_F(LaunchTest, OpensOnboardingOneAndAHalfSecondsAfterTheStartUnlessItWasCompletedByThen) {
    launch();
    time.advance(1499ms);
    EXPECT_EQ(onboardings, 0);
    time.advance(1ms);
    EXPECT_EQ(onboardings, 1);
    launch();
    settings.hasCompletedOnboarding.set(true);
    time.advance(5s);
    EXPECT_EQ(onboardings, 1);
}

TEST_F(LaunchTest, HidesWindowsForTheFirstSecondAfterTheLaunch) {
    construct();
    time.advance(400ms);
    EXPECT_EQ(suppressions, 0);
    app->delegate().applicationDidFinishLaunching();
    time.advance(999ms);
    EXPECT_EQ(suppressions, 1);
    time.advance(1ms);
    EXPECT_EQ(suppressions, 0);
}

TEST_F(LaunchTest, EndsOnRequestOnlyWithTheGuardsConsentAndAsksOnce) {
    EXPECT_FALSE(AppDelegate::applicationShouldTerminateAfterLastWindowClosed());
    launch();
    state.isRecording.set(true);
    app->delegate().terminate();
    time.settle();
    app->delegate().terminate();
    time.settle();
    EXPECT_EQ(alerts.shown.size(), 1U);
    alerts.choose("Keep Recording");
    time.settle();
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(signals.all, Names{"app_launched"});
    app->delegate().terminate();
    time.settle();
    alerts.choose("Quit Anyway");
    time.settle();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(signals.all.back(), "app_terminated");
    EXPECT_TRUE(state.isRecording.get());
}

}  // namespace
}  // namespace tessivox::core
