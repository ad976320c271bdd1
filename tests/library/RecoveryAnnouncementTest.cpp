#include "library/RecoveryAnnouncement.h"

#include <gtest/gtest.h>

#include "base/TaskScope.h"
#include "support/CrashingFiles.h"
#include "support/FakeAlerts.h"
#include "support/Library.h"
#include "support/ManualRuntime.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

struct RecoveryAnnouncementTest : ::testing::Test {
    testing::ManualRuntime time;
    testing::CrashingFiles disk;
    testing::FakeAlerts alerts;
    std::vector<std::pair<Path, double>> added;
    std::vector<std::size_t> tracked;

    void announce(std::vector<Path> recovered) {
        RecoveryListeners listeners{alerts,
                                    [this](const Path& url, double seconds) { added.emplace_back(url, seconds); },
                                    [this](std::size_t count) { tracked.push_back(count); }};
        base::TaskScope scope(time);
        scope.start(announceRecovery(disk, std::move(listeners), std::move(recovered)));
        time.settle();
        if (alerts.isOpen()) alerts.choose("OK");
        time.settle();
        EXPECT_TRUE(scope.isIdle());
    }
};

TEST_F(RecoveryAnnouncementTest, OneRecordingIsListedWithItsDurationAndAnnouncedInTheSingular) {
    disk.put("/recordings/monday.m4a", testing::silentMovie(5));
    announce({"/recordings/monday.m4a"});
    EXPECT_EQ(added, (std::vector<std::pair<Path, double>>{{"/recordings/monday.m4a", 5}}));
    EXPECT_EQ(tracked, std::vector<std::size_t>{1});
    ASSERT_EQ(alerts.shown.size(), 1U);
    EXPECT_EQ(alerts.shown[0].style, core::AlertStyle::informational);
    EXPECT_EQ(alerts.shown[0].message, "Recovered interrupted recording");
    EXPECT_EQ(alerts.shown[0].text,
              "Tessivox finished saving 1 recording that a previous session didn't get to finalize.");
    EXPECT_EQ(alerts.shown[0].buttons, std::vector<std::string>{"OK"});
}

TEST_F(RecoveryAnnouncementTest, SeveralRecordingsShareOneAlertInThePluralAndAnUnreadableOneLastsNoTime) {
    disk.put("/recordings/a.m4a", "not a sound file");
    announce({"/recordings/a.m4a", "/recordings/gone.m4a"});
    EXPECT_EQ(added, (std::vector<std::pair<Path, double>>{{"/recordings/a.m4a", 0}, {"/recordings/gone.m4a", 0}}));
    EXPECT_EQ(tracked, std::vector<std::size_t>{2});
    ASSERT_EQ(alerts.shown.size(), 1U);
    EXPECT_EQ(alerts.shown[0].message, "Recovered interrupted recordings");
    EXPECT_EQ(alerts.shown[0].text,
              "Tessivox finished saving 2 recordings that a previous session didn't get to finalize.");
}

TEST_F(RecoveryAnnouncementTest, NothingRecoveredIsNotMentioned) {
    announce({});
    EXPECT_TRUE(added.empty() && tracked.empty() && alerts.shown.empty());
}

}  // namespace
}  // namespace tessivox::library
