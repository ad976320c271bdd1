#include "core/AppState.h"

#include <gtest/gtest.h>

#include "support/ManualRuntime.h"

namespace tessivox::core {
namespace {

using namespace std::chrono_literals;

class AppStateTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    AppState state{time};
};

TEST_F(AppStateTest, CountsWholeSecondsAndGoesOnFromAPause) {
    state.startRecordingClock();
    time.advance(2900ms);
    EXPECT_EQ(state.recordingDuration.get(), 2.0);
    state.recordingTimer.reset();
    time.advance(10s);
    EXPECT_EQ(state.recordingDuration.get(), 2.0);
    state.resumeRecordingClock();
    time.advance(1s);
    EXPECT_EQ(state.recordingDuration.get(), 3.0);
}

TEST_F(AppStateTest, CountsFromZeroAndOnlyOnceAfterASecondStart) {
    state.startRecordingClock();
    time.advance(5s);
    state.startRecordingClock();
    EXPECT_EQ(state.recordingDuration.get(), 0.0);
    time.advance(1s);
    EXPECT_EQ(state.recordingDuration.get(), 1.0);
}

TEST_F(AppStateTest, WritesDurationsWithHoursOnlyWhenThereAreAny) {
    EXPECT_EQ(AppState::formattedDuration(0), "00:00");
    EXPECT_EQ(AppState::formattedDuration(59.9), "00:59");
    EXPECT_EQ(AppState::formattedDuration(425), "07:05");
    EXPECT_EQ(AppState::formattedDuration(3599), "59:59");
    EXPECT_EQ(AppState::formattedDuration(3600), "1:00:00");
    EXPECT_EQ(AppState::formattedDuration(36000), "10:00:00");
}

TEST_F(AppStateTest, DescribesErrorsWithTheirTextButNotTheResetDate) {
    EXPECT_EQ(AppError(AppError::RecordingFailed{"the disk is full"}).description(),
              "Recording failed: the disk is full");
    EXPECT_EQ(AppError(AppError::TranscriptionLimitReached{"2030-01-01"}).description(),
              "Transcription limit reached.");
    EXPECT_NE(AppError(AppError::StorageError{"a"}), AppError(AppError::StorageError{"b"}));
}

}  // namespace
}  // namespace tessivox::core
