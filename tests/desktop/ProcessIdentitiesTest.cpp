#include "platform/linux/desktop/ProcessIdentities.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "desktop/DesktopTree.h"

namespace tessivox::desktop {
namespace {

using std::filesystem::path;

class ProcessIdentitiesTest : public ::testing::Test {
protected:
    DesktopTree tree;
    DesktopEntries entries{{tree.applications()}};
    ProcessIdentities identities{entries, ProcessFiles(tree.proc())};

    ProcessClues clues(std::int32_t pid, const std::string& binary = {}) const {
        ProcessClues result;
        result.pid = pid;
        result.binary = binary;
        return result;
    }
    Identity identify(const ProcessClues& given) {
        const auto identity = identities.identify(given);
        EXPECT_TRUE(identity) << "taken for what is never in a call";
        return identity.value_or(Identity());
    }
    Identity identify(std::int32_t pid, const std::string& binary = {}) { return identify(clues(pid, binary)); }
    path flatpakInfo(std::int32_t pid) const { return tree.proc() / std::to_string(pid) / "root/.flatpak-info"; }
};

TEST_F(ProcessIdentitiesTest, BelievesTheFirstOfItsSourcesThatKnows) {
    const auto entry = tree.addEntry("org.x.Group", "Exec=/opt/group/run");
    tree.addEntry("org.x.Stated", "Exec=/opt/stated");
    const auto started = tree.addEntry("talker", "Exec=env A=1 \"/usr/bin/talk\" --now %U");
    auto process = DesktopTree::Process{"/usr/lib/talk/talk"};
    process.group = "0::/app.slice/app-gnome-org.x.Group-1.scope";
    tree.addProcess(500, process);
    tree.write(flatpakInfo(500), "[Runtime]\nname=wrong\n[Application]\nname=org.x.Flat\n[Context]\nname=wrong\n");
    auto all = clues(500, "talk");
    all.portalID = "org.x.Portal";
    all.applicationID = "org.x.Stated";
    EXPECT_EQ(identify(all), (Identity{"org.x.Portal", 500, "org.x.Portal", {}, true}));
    all.portalID.clear();
    EXPECT_EQ(identify(all), (Identity{"org.x.Flat", 500, "org.x.Flat", {}, true}));
    std::filesystem::remove(flatpakInfo(500));
    EXPECT_EQ(identify(all), (Identity{"org.x.Group", 500, "org.x.Group", entry, true}));
    process.group = "0::/app.slice/app-gnome-org.x.NotInstalled-1.scope";
    tree.addProcess(500, process);
    EXPECT_EQ(identify(all).identifier, "org.x.Stated");
    all.applicationID.clear();
    EXPECT_EQ(identify(all), (Identity{"talker", 500, "talker", started, true}));
    std::filesystem::remove(started);
    EXPECT_EQ(identify(all), (Identity{"talk", 500, "talk", {}, false}));
    EXPECT_EQ(identify(77), (Identity{"unknown.77", 0, "unknown.77", {}, false}));
}

TEST_F(ProcessIdentitiesTest, WritesIdentifiersAsTheTablesDo) {
    tree.addEntry("com.discordapp.Discord",
                  "Exec=/usr/bin/flatpak run com.discordapp.Discord\nX-Flatpak=com.discordapp.Discord");
    auto portal = clues(3, "Discord");
    portal.portalID = "com.discordapp.Discord";
    const auto discord = identify(portal);
    EXPECT_EQ(discord.identifier, "com.hnc.Discord");
    EXPECT_EQ(discord.entry, tree.applications() / "com.discordapp.Discord.desktop");
    tree.addProcess(600, {"/opt/zoom/zoom"});
    EXPECT_EQ(identify(600, "zoom").identifier, "us.zoom.xos");
    EXPECT_FALSE(identify(600, "zoom").isApplication) << "there is nothing the user could find it by";
    tree.addProcess(700, {"/snap/slack/180/usr/lib/slack/slack"});
    EXPECT_EQ(identify(700, "slack"), (Identity{"com.tinyspeck.slackmacgap", 700, "slack", {}, true}));
}

TEST_F(ProcessIdentitiesTest, FindsTheApplicationOfAHelper) {
    const auto chrome = tree.addEntry("google-chrome", "Exec=/usr/bin/google-chrome-stable %U");
    tree.addEntry("a-web-app", "Exec=/opt/google/chrome/chrome --app-id=abc");
    tree.addProcess(10, {"/usr/bin/bash"});
    tree.addProcess(20, {"/opt/google/chrome/chrome", 10});
    tree.addProcess(30, {"/opt/google/chrome/chrome (deleted)", 20});
    EXPECT_EQ(identify(30, "chrome"), (Identity{"com.google.Chrome", 30, "google-chrome", chrome, true}));
    const auto web = tree.addEntry("org.gnome.Epiphany", "Exec=epiphany %U");
    tree.addProcess(40, {"/usr/bin/epiphany", 10});
    tree.addProcess(50, {"/usr/bin/bwrap", 40});
    tree.addProcess(60, {"/usr/libexec/webkit2gtk-4.1/WebKitWebProcess", 50});
    EXPECT_EQ(identify(60, "WebKitWebProcess"), (Identity{"com.apple.Safari", 60, "org.gnome.Epiphany", web, true}));
}

TEST_F(ProcessIdentitiesTest, TakesAnInterpreterForItsScriptOrForNoApplication) {
    const auto tool = tree.addEntry("org.x.Tool", "Exec=/usr/bin/org.x.tool");
    tree.addEntry("idle", "Exec=/usr/bin/python3.11 -m idle");
    tree.addEntry("org.x.Console", "Exec=console\nCategories=System;TerminalEmulator;");
    auto process = DesktopTree::Process{"/usr/bin/python3.11"};
    process.command = "/usr/bin/python3 -u /usr/bin/org.x.tool --daemon";
    tree.addProcess(100, process);
    EXPECT_EQ(identify(100, "python3.11"), (Identity{"org.x.Tool", 100, "org.x.Tool", tool, true}));
    process.command = "python3 -c code";
    process.group = "0::/app-gnome-org.x.Console-1.scope";
    tree.addProcess(100, process);
    EXPECT_EQ(identify(100, "python3.11"), (Identity{"python3.11", 100, "python3.11", {}, false}));
    tree.addProcess(200, {"/usr/bin/pacat", 1, process.group});
    EXPECT_EQ(identify(200, "pacat"), (Identity{"pacat", 200, "pacat", {}, false}));
    process.command = "/usr/lib/electron28/electron /usr/lib/slack/app.asar";
    process.program = "/usr/lib/electron28/electron";
    tree.addProcess(300, process);
    EXPECT_EQ(identify(300, "electron").identifier, "com.tinyspeck.slackmacgap");
    process.command = "/usr/lib/electron28/electron --type=utility";
    process.parent = 300;
    tree.addProcess(301, process);
    EXPECT_EQ(identify(301, "electron").identifier, "com.tinyspeck.slackmacgap") << "its helper for sound";
}

TEST_F(ProcessIdentitiesTest, TellsWhatAnApplicationHasStartedFromItself) {
    tree.addEntry("firefox", "Exec=firefox %u");
    tree.addEntry("Zoom", "Exec=/usr/bin/zoom %U");
    tree.addProcess(100, {"/opt/zoom/zoom", 1, "0::/app-gnome-firefox-1.scope"});
    EXPECT_EQ(identify(100, "zoom").identifier, "us.zoom.xos");
    EXPECT_EQ(identify(100, "zoom").name, "Zoom");
    tree.addProcess(101, {"/usr/lib/firefox/firefox", 1, "0::/app-gnome-firefox-1.scope"});
    EXPECT_EQ(identify(101, "firefox").identifier, "org.mozilla.firefox");
}

TEST_F(ProcessIdentitiesTest, FindsTheNumberOfASandboxedProcess) {
    tree.addProcess(3, {""});
    tree.addProcess(900, {"/app/bin/talk", 1, "0::/", "", 3});
    tree.addProcess(901, {"/app/bin/other", 1, "0::/", "", 3});
    tree.write(flatpakInfo(900), "[Application]\nname=org.x.Talk\n");
    EXPECT_EQ(identify(3, "talk"), (Identity{"org.x.Talk", 900, "org.x.Talk", {}, true}));
    tree.addProcess(902, {"/app/bin/talk", 1, "0::/", "", 3});
    EXPECT_EQ(identify(3, "talk"), (Identity{"talk", 0, "talk", {}, false})) << "either of two";
    auto kernelsWord = clues(3, "talk");
    kernelsWord.securityPID = 900;
    EXPECT_EQ(identify(kernelsWord).pid, 900);
}

TEST_F(ProcessIdentitiesTest, TakesNothingButASmallFileForFlatpaks) {
    tree.addProcess(500, {"/app/bin/talk"});
    tree.write(tree.applications() / "elsewhere", "[Application]\nname=org.x.Elsewhere\n");
    std::filesystem::create_symlink(tree.applications() / "elsewhere", flatpakInfo(500));
    EXPECT_EQ(identify(500).identifier, "talk") << "a link";
    std::filesystem::remove(flatpakInfo(500));
    ASSERT_EQ(::mkfifo(flatpakInfo(500).c_str(), 0600), 0);
    EXPECT_EQ(identify(500).identifier, "talk") << "a pipe, which nobody writes to";
    std::filesystem::remove(flatpakInfo(500));
    tree.write(flatpakInfo(500), "[Application]\nname=org.x.Big\n" + std::string(64 * 1024, '\n'));
    EXPECT_EQ(identify(500).identifier, "talk") << "a large file";
    tree.write(flatpakInfo(500), "[Application]\nname=org.x.Small\n");
    EXPECT_EQ(identify(500).identifier, "org.x.Small");
    tree.write(tree.proc() / "500/mountinfo",
               "1 0 0:1 / / rw - tmpfs tmpfs rw\n2 0 0:2 / / rw master:1 - fuse.trap trap rw\n");
    EXPECT_EQ(identify(500).identifier, "talk") << "files that another program serves";
    tree.write(tree.proc() / "500/mountinfo", "3 0 0:3 / /proc rw - proc proc rw\n");
    EXPECT_EQ(identify(500).identifier, "talk") << "a root of which nobody knows who serves it";
}

TEST_F(ProcessIdentitiesTest, BoundsWhatOtherProgramsSay) {
    tree.addProcess(500, {"/usr/bin/talk"});
    auto stated = clues(500);
    stated.applicationID = "a b\n\x1B[31m\xE2\x80\xAE" + std::string(5000, 'x');
    const auto identity = identify(stated);
    EXPECT_EQ(identity.identifier.size(), 128u);
    EXPECT_TRUE(identity.identifier.starts_with("a_b__[31m___xxx")) << identity.identifier;
}

TEST_F(ProcessIdentitiesTest, LeavesOutWhatIsNeverInACallWhateverItIsKnownBy) {
    tree.addProcess(1000, {"/usr/local/bin/tessivox"});
    EXPECT_FALSE(identities.identify(clues(1000, "tessivox")));
    EXPECT_FALSE(identities.identify(clues(0, "easyeffects")));
    auto stated = clues(0, "x");
    stated.applicationID = "com.github.wwmm.easyeffects";
    EXPECT_FALSE(identities.identify(stated));
    auto orca = DesktopTree::Process{"/usr/bin/python3.11"};
    orca.command = "/usr/bin/python3 /usr/bin/orca";
    tree.addProcess(1001, orca);
    EXPECT_FALSE(identities.identify(clues(1001, "python3.11")));
}

TEST_F(ProcessIdentitiesTest, RemembersAProcessUntilItsNumberOrTheDesktopFilesChange) {
    tree.addProcess(500, {"/usr/bin/talk"});
    auto stated = clues(500);
    stated.applicationID = "org.x.Stated";
    EXPECT_EQ(identify(stated).identifier, "org.x.Stated");
    EXPECT_EQ(identities.identify(500)->identifier, "org.x.Stated") << "what the server said of it";
    tree.addProcess(500, {"/usr/bin/other"}, 200);
    EXPECT_EQ(identities.identify(500)->identifier, "other") << "another process of that number";
    const auto entry = tree.addEntry("deep/er", "Exec=other");
    const auto identity = identities.identify(500);
    EXPECT_EQ(identity->identifier, "deep-er");
    EXPECT_EQ(identity->entry, entry);
}

}  // namespace
}  // namespace tessivox::desktop
