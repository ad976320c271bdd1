#include "app/RecordDisplay.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "app/Console.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;

RecordView running() {
    RecordView view;
    view.phase = RecordView::Phase::recording;
    view.elapsed = 425s;
    view.microphoneLevel = 0.5F;
    view.systemAudioLevel = 1.0F;
    view.takesKeys = true;
    return view;
}

TEST(RecordDisplayTest, ShowsTimeLevelsAndKeys) {
    EXPECT_EQ(recordLine(running(), 120),
              "Recording 07:05  mic [##########..........]  system [####################]  p pause, q stop");
    auto view = running();
    view.phase = RecordView::Phase::paused;
    view.microphoneLevel.reset();
    EXPECT_EQ(recordLine(view, 120), "Paused 07:05  system [####################]  p resume, q stop");
}

TEST(RecordDisplayTest, GivesUpWhatMattersLeastAndNeverWrapsInANarrowTerminal) {
    for (const auto phase : {RecordView::Phase::starting, RecordView::Phase::recording, RecordView::Phase::paused,
                             RecordView::Phase::saving}) {
        auto view = running();
        view.phase = phase;
        for (std::size_t columns = 0; columns < 130; ++columns) EXPECT_LE(recordLine(view, columns).size(), columns);
    }
    EXPECT_EQ(recordLine(running(), 80),
              "Recording 07:05  mic [#######.......]  system [##############]  p pause, q stop");
    EXPECT_EQ(recordLine(running(), 50), "Recording 07:05  mic [####....]  system [########]");
    EXPECT_EQ(recordLine(running(), 20), "Recording 07:05");
    EXPECT_EQ(recordLine(running(), 6), "07:05");
}

TEST(RecordDisplayTest, BoundsLevelsThatAreNone) {
    auto view = running();
    view.microphoneLevel = std::numeric_limits<float>::quiet_NaN();
    view.systemAudioLevel = -3.0F;
    EXPECT_EQ(recordLine(view, 120).find('#'), std::string::npos);
}

TEST(RecordDisplayTest, ShowsThatSavingGoesOn) {
    auto view = running();
    view.phase = RecordView::Phase::saving;
    view.saving = 12s;
    EXPECT_EQ(recordLine(view, 80), "Saving 07:05  (00:12)");
    view.encodingProgress = 0.428;
    EXPECT_EQ(recordLine(view, 80), "Saving 07:05  43 %");
}

TEST(ConsoleTest, KeepsForeignTextFromSteeringTheTerminal) {
    EXPECT_EQ(printable("Mic\x1b[2J\n\x7f"), "Mic [2J  ");
    EXPECT_EQ(printable("K\xC3\xB6nig \xC2\x9B ok \xC2\xB5"), "K\xC3\xB6nig   ok \xC2\xB5");
}

}  // namespace
}  // namespace tessivox::app
