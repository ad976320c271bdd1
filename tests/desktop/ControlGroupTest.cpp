#include "platform/linux/desktop/ControlGroup.h"

#include <gtest/gtest.h>

#include <string>

namespace tessivox::desktop {
namespace {

using Kind = GroupOwner::Kind;

std::optional<GroupOwner> owner(const std::string& unit) {
    return ownerOfGroups("1:name=old:/\n0::/user.slice/user-1000.slice/user@1000.service/app.slice/" + unit + "\n");
}

TEST(ControlGroupTest, NamesTheApplicationThatADesktopHasStarted) {
    EXPECT_EQ(owner("app-gnome-firefox-4711.scope"), (GroupOwner{Kind::desktopEntry, "firefox"}));
    EXPECT_EQ(owner("app-gnome-google\\x2dchrome-4711.scope"), (GroupOwner{Kind::desktopEntry, "google-chrome"}));
    EXPECT_EQ(owner("app-org.kde.kate-0a1b.scope"), (GroupOwner{Kind::desktopEntry, "org.kde.kate"}));
    EXPECT_EQ(owner("app-org.kde.kate@0a1b.service"), (GroupOwner{Kind::desktopEntry, "org.kde.kate"}));
    EXPECT_EQ(owner("app-gnome-org.x.Tool.desktop-1.scope/inner"), (GroupOwner{Kind::desktopEntry, "org.x.Tool"}));
    EXPECT_EQ(owner("app-flatpak-us.zoom.Zoom-99.scope"), (GroupOwner{Kind::flatpak, "us.zoom.Zoom"}));
    EXPECT_EQ(owner("snap.discord.discord-0a1b.scope"), (GroupOwner{Kind::snap, "discord"}));
    EXPECT_EQ(owner("snap.slack.slack.service"), (GroupOwner{Kind::snap, "slack"}));
}

TEST(ControlGroupTest, NamesNobodyWhereNoDesktopDid) {
    for (const auto* unit : {"", "session.slice", "vte-spawn-0a1b.scope", "app-4711.scope", "app-.scope", "snap..scope",
                             "app-a-b-c-d.scope", "app-.service", "tmux-spawn-1.scope", "app-gnome.slice"}) {
        EXPECT_EQ(owner(unit), std::nullopt) << unit;
    }
    EXPECT_EQ(ownerOfGroups(""), std::nullopt);
}

}  // namespace
}  // namespace tessivox::desktop
