#include "core/PermissionManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Error.h"
#include "base/Log.h"
#include "support/FakeAlerts.h"
#include "support/ManualRuntime.h"
#include "support/NullFiles.h"
#include "support/QuietDesktop.h"
#include "support/SentSignals.h"

namespace tessivox::core {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

/// A system that asks its user, whose answer the test knows.
struct FakePermissions final : Permissions {
    MicrophoneAuthorization microphoneNow = MicrophoneAuthorization::notDetermined;
    bool userAllowsMicrophone = true;
    bool screenNow = false;
    bool grantsScreenAtOnce = false;
    std::optional<std::string> resetProblem;
    Names events;
    base::Signal<> changed;

    base::Task<MicrophoneAuthorization> microphone() override { co_return microphoneNow; }
    base::Task<bool> requestMicrophone() override {
        microphoneNow = userAllowsMicrophone ? MicrophoneAuthorization::authorized : MicrophoneAuthorization::denied;
        co_return userAllowsMicrophone;
    }
    base::Task<bool> canRecordScreen() override { co_return screenNow; }
    bool requestScreenRecording() override { return screenNow = grantsScreenAtOnce; }
    base::Task<void> askForShareableContent() override {
        events.emplace_back("content");
        co_return;
    }
    base::Task<void> resetScreenRecording() override {
        if (resetProblem) throw base::Error("test", 1, *resetProblem);
        events.emplace_back("reset");
        co_return;
    }
    void open(PrivacyPane pane) override { events.push_back("pane " + std::to_string(static_cast<int>(pane))); }
    base::Subscription onChange(std::function<void()> handler) override { return changed.observe(std::move(handler)); }
};

const std::string kScreenPane = "pane 0";

class PermissionManagerTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::SentSignals signals;
    testing::NullFiles files;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    testing::FakeAlerts alerts;
    AppSettings settings{signals.store, files, {}, chooser, loginItem};
    FakePermissions system;
    int terminations = 0;
    std::unique_ptr<PermissionManager> manager;

    void start() {
        manager = std::make_unique<PermissionManager>(PermissionManager::Parts{
            time, system, signals.store, settings, signals.analytics, alerts, [this] { ++terminations; }});
        time.settle();
    }
    PermissionStatus microphone() const { return manager->microphonePermissionStatus.get(); }
    PermissionStatus screen() const { return manager->screenRecordingPermissionStatus.get(); }
    void refresh() { testing::await(time, manager->refreshAll()); }
};

TEST_F(PermissionManagerTest, KnowsNothingUntilItsFirstReadingWhichItTellsOnce) {
    start();
    EXPECT_EQ(microphone(), PermissionStatus::notDetermined);
    EXPECT_EQ(screen(), PermissionStatus::notDetermined);
    refresh();
    EXPECT_EQ(signals.all, Names{"permission_state mic=not_determined screen=not_determined"});

    manager = nullptr;
    signals.all.clear();
    system.microphoneNow = MicrophoneAuthorization::authorized;
    system.screenNow = true;
    start();
    EXPECT_EQ(signals.all, Names{"permission_state mic=granted screen=granted"}) << "a first reading is no decision";
}

TEST_F(PermissionManagerTest, ReadsEveryAnswerOfTheSystem) {
    start();
    using A = MicrophoneAuthorization;
    using S = PermissionStatus;
    for (const auto& [answer, status] :
         {std::pair(A::authorized, S::granted), std::pair(A::unknown, S::unknown), std::pair(A::restricted, S::denied),
          std::pair(A::notDetermined, S::notDetermined), std::pair(A::denied, S::denied)}) {
        system.microphoneNow = answer;
        refresh();
        EXPECT_EQ(microphone(), status);
    }
    signals.store.set("screenRecordingRequested", true);
    refresh();
    EXPECT_EQ(screen(), S::denied) << "asked in an earlier run, and still not granted";
}

TEST_F(PermissionManagerTest, TellsOnlyDecisionsThatChangeAKnownStatus) {
    start();
    signals.all.clear();
    system.userAllowsMicrophone = false;
    EXPECT_FALSE(testing::await(time, manager->requestMicrophonePermission()));
    EXPECT_EQ(microphone(), PermissionStatus::denied);
    refresh();
    system.microphoneNow = MicrophoneAuthorization::unknown;
    refresh();
    system.microphoneNow = MicrophoneAuthorization::authorized;
    refresh();
    system.microphoneNow = MicrophoneAuthorization::notDetermined;
    refresh();
    EXPECT_TRUE(testing::await(time, [&] {
        system.userAllowsMicrophone = true;
        return manager->requestMicrophonePermission();
    }()));
    system.screenNow = true;
    refresh();
    EXPECT_EQ(signals.all, (Names{"permission_result granted=false type=mic", "permission_result granted=true type=mic",
                                  "permission_result granted=true type=screen"}));
}

TEST_F(PermissionManagerTest, ShowsWhatChangesByItself) {
    start();
    system.microphoneNow = MicrophoneAuthorization::authorized;
    system.screenNow = true;
    system.changed.emit();
    time.settle();
    EXPECT_TRUE(manager->hasAllPermissions());
    system.screenNow = false;
    system.changed.emit();
    time.settle();
    EXPECT_FALSE(manager->hasAllPermissions());
}

TEST_F(PermissionManagerTest, AsksForScreenRecordingAndLeadsToTheSettingsIfThatIsNotEnough) {
    start();
    EXPECT_FALSE(manager->requestedScreenRecordingThisRun.get());
    manager->requestScreenRecordingPermission();
    EXPECT_EQ(system.events, Names{kScreenPane}) << "the settings open at once";
    EXPECT_EQ(signals.store.value("screenRecordingRequested"), base::PreferenceValue(true));
    EXPECT_TRUE(manager->requestedScreenRecordingThisRun.get());
    time.settle();
    EXPECT_EQ(system.events, (Names{kScreenPane, "content"}));
    EXPECT_EQ(screen(), PermissionStatus::denied);

    system.grantsScreenAtOnce = true;
    manager->requestScreenRecordingPermission();
    time.settle();
    EXPECT_EQ(system.events.size(), 2U);
    EXPECT_EQ(screen(), PermissionStatus::granted);
}

TEST_F(PermissionManagerTest, AllowsARecordingIfAllThatIsWantedIsGranted) {
    system.microphoneNow = MicrophoneAuthorization::authorized;
    start();
    for (const auto& [mic, sound, isAllowed] : {std::tuple(true, true, false), std::tuple(true, false, true),
                                                std::tuple(false, true, false), std::tuple(false, false, false)}) {
        settings.recordMicrophone.set(mic);
        settings.recordSystemAudio.set(sound);
        EXPECT_EQ(manager->canRecord(), isAllowed) << mic << sound;
    }
    settings.recordSystemAudio.set(true);
    system.screenNow = true;
    refresh();
    EXPECT_TRUE(manager->canRecord());
}

TEST_F(PermissionManagerTest, ResetsTheGrantAndQuitsASecondAfterTheUserAgreed) {
    start();
    manager->resetScreenRecordingPermission();
    time.settle();
    ASSERT_EQ(alerts.shown.size(), 1U);
    EXPECT_EQ(alerts.shown[0].message, "Permissions Reset");
    EXPECT_EQ(alerts.shown[0].buttons.at(alerts.shown[0].safeChoice), "Later");
    alerts.choose("Later");
    time.advance(5s);
    EXPECT_EQ(terminations, 0);
    EXPECT_EQ(system.events, Names{"reset"});

    manager->resetScreenRecordingPermission();
    time.settle();
    alerts.choose("Open Settings & Quit");
    time.settle();
    EXPECT_EQ(system.events.back(), kScreenPane);
    time.advance(999ms);
    EXPECT_EQ(terminations, 0);
    time.advance(1ms);
    EXPECT_EQ(terminations, 1);
}

TEST_F(PermissionManagerTest, OnlyLogsAResetThatTheSystemCannotDo) {
    std::string log;
    base::setLogSink([&](std::string_view line) { log += line; });
    start();
    system.resetProblem = "Nothing to reset.";
    manager->resetScreenRecordingPermission();
    time.settle();
    base::setLogSink(nullptr);
    EXPECT_NE(log.find("Failed to reset TCC: Nothing to reset."), std::string::npos);
    EXPECT_TRUE(alerts.shown.empty());
}

}  // namespace
}  // namespace tessivox::core
