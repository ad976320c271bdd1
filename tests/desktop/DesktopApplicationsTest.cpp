#include "platform/linux/desktop/DesktopApplications.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "desktop/DesktopTree.h"

namespace tessivox::desktop {
namespace {

class DesktopApplicationsTest : public ::testing::Test {
protected:
    DesktopTree tree;
    DesktopEntries entries{{tree.applications()}};
    ProcessIdentities identities{entries, ProcessFiles(tree.proc())};
    DesktopApplications applications{entries, identities};

    static void SetUpTestSuite() { ::setenv("LANGUAGE", "de", 1); }
    static void TearDownTestSuite() { ::unsetenv("LANGUAGE"); }
};

TEST_F(DesktopApplicationsTest, KnowsAnApplicationByItsDesktopFile) {
    const auto file =
        tree.addEntry("org.x.Talk", "Exec=/bin/true %U\nName=Talk\nName[de]=Gespr\u00E4ch\nIcon=org.x.Talk");
    tree.addProcess(500, {"/usr/lib/x/true"});
    EXPECT_EQ(applications.hostApp(500), (detection::HostApp{"org.x.Talk", file}));
    const auto running = applications.runningApplication(500);
    ASSERT_TRUE(running);
    EXPECT_TRUE(running->isRegular);
    EXPECT_FALSE(running->isActive);
    EXPECT_EQ(running->localizedName, "Gespr\u00E4ch");
    EXPECT_EQ(applications.urlForApplication("org.x.Talk"), file);
    EXPECT_EQ(applications.bundleIdentifier(file), "org.x.Talk");
    EXPECT_EQ(applications.bundleDisplayName(file), "Gespr\u00E4ch");
    EXPECT_EQ(applications.iconName(file), "org.x.Talk");
}

TEST_F(DesktopApplicationsTest, OffersNoCommandAsAnApplication) {
    tree.addProcess(500, {"/usr/bin/pacat"});
    EXPECT_EQ(applications.hostApp(500), std::nullopt);
    const auto running = applications.runningApplication(500);
    ASSERT_TRUE(running);
    EXPECT_FALSE(running->isRegular);
    EXPECT_EQ(running->localizedName, "pacat");
    EXPECT_EQ(applications.runningApplication(501), std::nullopt);
    EXPECT_EQ(applications.urlForApplication("pacat"), std::nullopt);
    EXPECT_EQ(applications.bundleIdentifier(tree.applications() / "missing.desktop"), std::nullopt);
    EXPECT_EQ(applications.bundleDisplayName(tree.applications() / "missing.desktop"), std::nullopt);
    EXPECT_EQ(applications.iconName(tree.applications() / "missing.desktop"), "");
}

TEST_F(DesktopApplicationsTest, FindsWhatIsInstalledUnderTheIdentifiersOfTheTables) {
    const auto chromium = tree.addEntry("chromium", "Exec=/bin/true\nName=Chromium");
    EXPECT_EQ(applications.urlForApplication("com.google.Chrome"), chromium);
    const auto chrome = tree.addEntry("google-chrome", "Exec=/bin/true\nName=Google Chrome");
    EXPECT_EQ(applications.urlForApplication("com.google.Chrome"), chrome) << "the likelier of two";
    const auto obs =
        tree.addEntry("com.obsproject.Studio", "Exec=flatpak run x\nX-Flatpak=com.obsproject.Studio\nName=OBS");
    EXPECT_EQ(applications.urlForApplication("com.obsproject.obs-studio"), obs);
    EXPECT_EQ(applications.bundleIdentifier(obs), "com.obsproject.obs-studio");
    const auto slack =
        tree.addEntry("slack_slack", "Exec=env HINT=x /snap/bin/slack %U\nX-SnapInstanceName=slack\nName=Slack");
    EXPECT_EQ(applications.urlForApplication("com.tinyspeck.slackmacgap"), slack);
    EXPECT_EQ(applications.bundleIdentifier(slack), "com.tinyspeck.slackmacgap");
}

TEST_F(DesktopApplicationsTest, ListsWhatAUserMayChooseByName) {
    tree.addEntry("zoom", "Exec=/bin/true\nName=zebra");
    tree.addEntry("a", "Exec=/bin/true\nName=Mole");
    tree.addEntry("hidden", "Exec=/bin/true\nName=Hidden\nNoDisplay=true");
    tree.addEntry("gone", "Exec=/nonexistent/program\nName=Gone");
    tree.addEntry("trick", "Exec=/bin/true\nName=\u202EApp\u2066le");
    std::vector<std::string> found;
    for (const auto& one : applications.installed()) found.push_back(one.bundleID + " " + one.name);
    EXPECT_EQ(found, (std::vector<std::string>{"trick Apple", "a Mole", "us.zoom.xos zebra"}));
}

}  // namespace
}  // namespace tessivox::desktop
