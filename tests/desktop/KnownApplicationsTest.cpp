#include "platform/linux/desktop/KnownApplications.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "detection/CallTables.h"

namespace tessivox::desktop {
namespace {

std::string identifierOf(std::string_view name) {
    const auto* known = knownApplication(name);
    return known ? std::string(known->identifier) : "";
}

/// The tables of calls, browsers and exclusions, less what has no kin here.
std::vector<std::string> listedIdentifiers() {
    std::vector<std::string> all(detection::kKnownCallApps.begin(), detection::kKnownCallApps.end());
    all.insert(all.end(), detection::kBrowserPrefixes.begin(), detection::kBrowserPrefixes.end());
    all.insert(all.end(), detection::kBuiltInExclusions.begin(), detection::kBuiltInExclusions.end());
    for (const auto* foreign : {"com.apple.avconferenced", "com.ovh.softcall", "company.thebrowser"}) {
        EXPECT_EQ(std::erase(all, foreign), 1) << foreign;
    }
    return all;
}

TEST(KnownApplicationsTest, LeadsEveryListedIdentifierToItsKinHereAndBack) {
    // An identifier here may continue a listed one.
    const std::vector<std::string> identifiers{"us.zoom.xos", "com.cisco.webexmeetingsapp", "com.skype.skype",
                                               "com.apple.WebKit.WebContent"};
    for (const auto& entry : listedIdentifiers()) {
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
