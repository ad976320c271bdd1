#include "app/ExcludeCommand.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "FakeConsole.h"
#include "support/FakeApplications.h"
#include "support/MemoryPreferences.h"
#include "support/SentSignals.h"

namespace tessivox::app {
namespace {

using Apps = std::vector<std::string>;

class ExcludeCommandTest : public ::testing::Test {
protected:
    testing::FakeApplications applications;
    testing::MemoryPreferences preferences;
    testing::SentSignals signals;
    FakeConsole console;
    detection::AppExclusions exclusions{{applications, preferences, signals.analytics}};
    ExcludeCommand command{{exclusions, applications, console}};

    void SetUp() override {
        applications.install("us.zoom.xos", "Zoom");
        applications.install("com.obsproject.obs-studio", "OBS Studio");
    }
    ExitCode add(const Apps& apps) { return command.run({ExcludeAction::add, apps}); }
    ExitCode remove(const Apps& apps) { return command.run({ExcludeAction::remove, apps}); }
    std::string listed(bool asJSON = false) {
        console.output.clear();
        EXPECT_EQ(command.run({ExcludeAction::list, {}, asJSON}), ExitCode::done);
        return console.output;
    }
};

TEST_F(ExcludeCommandTest, FindsAnApplicationByIdentifierFileOrName) {
    for (const std::string app :
         {"us.zoom.xos", "/usr/share/applications/us.zoom.xos.desktop", "us.zoom.xos.desktop", "Zoom", "zOOm"}) {
        EXPECT_EQ(add({app}), ExitCode::done) << app;
        EXPECT_EQ(exclusions.userIgnoredApps.get(), (std::map<std::string, std::string>{{"us.zoom.xos", "Zoom"}}));
        EXPECT_EQ(remove({app}), ExitCode::done) << app;
        EXPECT_TRUE(exclusions.userIgnoredApps.get().empty());
    }
    EXPECT_TRUE(console.messages.empty());
}

TEST_F(ExcludeCommandTest, SwitchesBuiltInEntriesWhetherTheyAreInstalledOrNot) {
    EXPECT_EQ(remove({"OBS Studio", "com.granola.app"}), ExitCode::done);
    EXPECT_EQ(exclusions.disabledBuiltIns.get(),
              (std::set<std::string>{"com.granola.app", "com.obsproject.obs-studio"}));
    EXPECT_EQ(add({"com.granola.app", "OBS Studio"}), ExitCode::done);
    EXPECT_TRUE(exclusions.disabledBuiltIns.get().empty());
    EXPECT_TRUE(exclusions.userIgnoredApps.get().empty());
}

TEST_F(ExcludeCommandTest, RemovesBothWhatTheUserAddedAndWhatIsBuiltIn) {
    exclusions.addIgnoredApp("com.granola.app", "Granola");
    EXPECT_EQ(remove({"com.granola.app"}), ExitCode::done);
    EXPECT_FALSE(exclusions.isExcludedProcess({7, "com.granola.app"}));
}

TEST_F(ExcludeCommandTest, TakesAnIdentifierThatNobodyKnowsAndSaysSo) {
    EXPECT_EQ(add({"org.example.Meet"}), ExitCode::done);
    EXPECT_TRUE(console.said("No installed application is called \"org.example.Meet\""));
    EXPECT_TRUE(exclusions.isExcludedProcess({7, "org.example.Meet.helper"}));
}

TEST_F(ExcludeCommandTest, RefusesWhatCannotBeMeantAndGoesOnWithTheRest) {
    applications.install("a.a", "Meet");
    applications.install("b.b", "meet");
    EXPECT_EQ(add({"Meet", "My Talk", "/tmp/none.desktop", "none.desktop", "Zoom"}), ExitCode::failed);
    EXPECT_TRUE(console.said("name one of a.a, b.b"));
    EXPECT_TRUE(console.said("No application is called \"My Talk\""));
    EXPECT_TRUE(console.said("\"/tmp/none.desktop\" is no application's desktop file"));
    EXPECT_TRUE(console.said("\"none.desktop\""));
    EXPECT_EQ(exclusions.userIgnoredApps.get().size(), 1U);
    EXPECT_EQ(remove({"org.example.Meet", "us.zoom.xos"}), ExitCode::failed);
    EXPECT_TRUE(console.said("\"org.example.Meet\" is not excluded"));
    EXPECT_TRUE(exclusions.userIgnoredApps.get().empty());
}

TEST_F(ExcludeCommandTest, ListsWhatIsExcluded) {
    add({"us.zoom.xos"});
    exclusions.addIgnoredApp("gone", "G\x1b[2J");
    EXPECT_EQ(listed(),
              "on   built-in  com.obsproject.obs-studio  OBS Studio\n"
              "on   added     gone                       G [2J\n"
              "on   added     us.zoom.xos                Zoom\n");
    exclusions.removeIgnoredApp("gone");
    remove({"OBS Studio"});
    EXPECT_EQ(nlohmann::json::parse(listed(true)), nlohmann::json::parse(R"([
        {"id": "com.obsproject.obs-studio", "name": "OBS Studio", "isBuiltIn": true, "isExcluded": false,
         "desktopFile": "/usr/share/applications/com.obsproject.obs-studio.desktop"},
        {"id": "us.zoom.xos", "name": "Zoom", "isBuiltIn": false, "isExcluded": true,
         "desktopFile": "/usr/share/applications/us.zoom.xos.desktop"}])"));
}

}  // namespace
}  // namespace tessivox::app
