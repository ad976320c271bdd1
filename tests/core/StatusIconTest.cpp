#include "core/StatusIcon.h"

#include <gtest/gtest.h>

#include "support/ManualRuntime.h"

namespace tessivox::core {
namespace {

using namespace std::chrono_literals;

constexpr StatusImage kPlain{StatusBadge::none, true};
constexpr StatusImage kRed{StatusBadge::red, false};
constexpr StatusImage kBetweenBlinks{StatusBadge::none, false};
constexpr StatusImage kOrange{StatusBadge::orange, false};
constexpr StatusImage kBlue{StatusBadge::blue, false};

class StatusIconTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    AppState state{time};
    base::Observable<bool> updateAvailable{false};
    StatusIcon icon{time, state, updateAvailable};

    StatusImage shown() const { return icon.image.get(); }
};

TEST_F(StatusIconTest, ShowsEachStateByItsBadge) {
    struct Row {
        bool isRecording, isPaused, updateAvailable;
        StatusImage image;
    };
    const std::vector<Row> table{{true, false, false, kRed},    {true, false, true, kRed},
                                 {true, true, false, kOrange},  {true, true, true, kOrange},
                                 {false, false, true, kBlue},   {false, true, true, kBlue},
                                 {false, false, false, kPlain}, {false, true, false, kPlain}};
    icon.subscribe();
    EXPECT_EQ(shown(), kPlain);
    for (const auto& row : table) {
        state.isRecording.set(row.isRecording);
        state.isPaused.set(row.isPaused);
        updateAvailable.set(row.updateAvailable);
        EXPECT_EQ(shown(), row.image) << row.isRecording << row.isPaused << row.updateAvailable;
    }
}

TEST_F(StatusIconTest, ShowsAtOnceWhatWasGoingOnBeforeItSubscribed) {
    state.isRecording.set(true);
    EXPECT_EQ(shown(), kPlain);
    icon.subscribe();
    EXPECT_EQ(shown(), kRed);
}

TEST_F(StatusIconTest, BlinksWhileItRecordsWithoutEverBecomingATemplate) {
    icon.subscribe();
    state.isRecording.set(true);
    for (int cycle = 0; cycle < 3; ++cycle) {
        time.advance(599ms);
        EXPECT_EQ(shown(), kRed);
        time.advance(1ms);
        EXPECT_EQ(shown(), kBetweenBlinks);
        time.advance(599ms);
        EXPECT_EQ(shown(), kBetweenBlinks);
        time.advance(1ms);
        EXPECT_EQ(shown(), kRed);
    }
}

TEST_F(StatusIconTest, StopsBlinkingAtAPauseAndBeginsAnewWithTheBadge) {
    icon.subscribe();
    state.isRecording.set(true);
    time.advance(700ms);
    state.isPaused.set(true);
    time.advance(10s);
    EXPECT_EQ(shown(), kOrange);
    state.isPaused.set(false);
    EXPECT_EQ(shown(), kRed);
    time.advance(599ms);
    EXPECT_EQ(shown(), kRed);
    updateAvailable.set(true);
    state.isRecording.set(false);
    time.advance(10s);
    EXPECT_EQ(shown(), kBlue);
}

}  // namespace
}  // namespace tessivox::core
