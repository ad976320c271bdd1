#include "core/QuitGuard.h"

#include <gtest/gtest.h>

#include "support/FakeAlerts.h"
#include "support/ManualRuntime.h"

namespace tessivox::core {
namespace {

class QuitGuardTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    AppState state{time};
    testing::FakeAlerts alerts;
    QuitGuard guard{state, alerts};
};

TEST_F(QuitGuardTest, AsksNothingWhileNothingIsRecorded) {
    EXPECT_TRUE(testing::await(time, guard.shouldTerminate()));
    EXPECT_TRUE(alerts.shown.empty());
}

TEST_F(QuitGuardTest, LeavesItToTheUserWhileARecordingRunsOrRests) {
    state.isRecording.set(true);
    for (const auto& [button, ends] : {std::pair("Quit Anyway", true), std::pair("Keep Recording", false)}) {
        state.isPaused.set(ends);
        const auto answered = time.after(std::chrono::seconds(30), [this, button = button] { alerts.choose(button); });
        EXPECT_EQ(testing::await(time, guard.shouldTerminate()), ends) << button;
        EXPECT_TRUE(state.isRecording.get());
    }
    const auto& alert = alerts.shown.front();
    EXPECT_EQ(alert.style, AlertStyle::warning);
    EXPECT_EQ(alert.message, "A recording is in progress");
    EXPECT_EQ(alert.text,
              "If you quit now, the current recording will be finalized and restored the next time you open Tessivox.");
    EXPECT_EQ(alert.buttons.at(0), "Quit Anyway");
    EXPECT_EQ(alert.buttons.at(alert.safeChoice), "Keep Recording");
}

}  // namespace
}  // namespace tessivox::core
