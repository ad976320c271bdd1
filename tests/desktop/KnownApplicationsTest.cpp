#include "platform/linux/desktop/KnownApplications.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tessivox::desktop {
namespace {

std::string identifierOf(std::string_view name) {
    const auto* known = knownApplication(name);
    return known ? std::string(known->identifier) : "";
}

TEST(KnownApplicationsTest, LeadsEverySpecifiedIdentifierWithKinHereToItAndBack) {
    // What the tables of calls, browsers and exclusions list; an identifier here may continue theirs.
    const std::vector<std::string> specified{"us.zoom",
                                             "com.microsoft.teams",
                                             "com.tinyspeck.slackmacgap",
                                             "ru.keepcoder.Telegram",
                                             "com.tdesktop.Telegram",
                                             "net.whatsapp.WhatsApp",
                                             "desktop.WhatsApp",
                                             "com.cisco.webex",
                                             "Cisco-Systems.Spark",
                                             "com.hnc.Discord",
                                             "com.skype",
                                             "com.google.Chrome",
                                             "com.apple.WebKit",
                                             "com.apple.Safari",
                                             "ai.perplexity.comet",
                                             "com.brave.Browser",
                                             "org.mozilla.firefox",
                                             "com.microsoft.edgemac",
                                             "com.operasoftware.Opera",
                                             "com.vivaldi.Vivaldi",
                                             "ru.yandex.desktop.yandex-browser",
                                             "app.spokenly",
                                             "com.superduper.superwhisper",
                                             "md.obsidian",
                                             "com.electron.wispr-flow",
                                             "com.openai.codex",
                                             "com.todesktop.230313mzl4w4u92",
                                             "com.anthropic.claudefordesktop",
                                             "com.apple.VoiceMemos",
                                             "com.apple.PhotoBooth",
                                             "com.apple.QuickTimePlayerX",
                                             "com.openai.chat",
                                             "com.obsproject.obs-studio",
                                             "com.goodsnooze.MacWhisper",
                                             "com.granola.app"};
    const std::vector<std::string> identifiers{"us.zoom.xos", "com.cisco.webexmeetingsapp", "com.skype.skype",
                                               "com.apple.WebKit.WebContent"};
    for (const auto& entry : specified) {
        auto names = namesFor(entry);
        for (const auto& longer : identifiers) {
            if (longer.starts_with(entry)) names = namesFor(longer);
        }
        EXPECT_FALSE(names.empty()) << entry;
        for (const auto& name : names) {
            EXPECT_TRUE(identifierOf(name).starts_with(entry)) << name << " belongs to two: " << identifierOf(name);
            EXPECT_FALSE(isNeverInCall(name)) << name;
            EXPECT_TRUE(std::ranges::none_of(name, [](char letter) { return letter >= 'A' && letter <= 'Z'; })) << name;
        }
    }
}

TEST(KnownApplicationsTest, KnowsApplicationsByAnyOfTheirNames) {
    for (const auto* zoom : {"zoom", "us.zoom.Zoom", "zoom-client", "ZoomLauncher"}) {
        EXPECT_EQ(identifierOf(zoom), "us.zoom.xos") << zoom;
    }
    EXPECT_EQ(identifierOf("Discord"), "com.hnc.Discord");
    EXPECT_EQ(identifierOf("org.telegram.desktop"), "com.tdesktop.Telegram");
    EXPECT_EQ(identifierOf("chromium"), "com.google.Chrome");
    EXPECT_EQ(identifierOf("google-chrome-beta"), "com.google.Chrome.beta");
    EXPECT_EQ(identifierOf("firefox-esr"), "org.mozilla.firefox");
    EXPECT_EQ(identifierOf("com.obsproject.Studio"), "com.obsproject.obs-studio");
    EXPECT_EQ(identifierOf("org.gnome.SoundRecorder"), "com.apple.VoiceMemos");
    EXPECT_EQ(identifierOf("ffmpeg"), "");
    EXPECT_EQ(identifierOf("zoo"), "");
    EXPECT_EQ(identifierOf(""), "");
}

TEST(KnownApplicationsTest, NeverTakesFiltersMetersSpeechOrThisProgramForACall) {
    for (const auto* name : {"easyeffects", "com.github.wwmm.easyeffects", "noisetorch", "pavucontrol", "wireplumber",
                             "sd_espeak-ng", "orca", "cava", "tessivox"}) {
        EXPECT_TRUE(isNeverInCall(name)) << name;
    }
    EXPECT_FALSE(isNeverInCall("parec"));
    EXPECT_FALSE(isNeverInCall(""));
}

}  // namespace
}  // namespace tessivox::desktop
