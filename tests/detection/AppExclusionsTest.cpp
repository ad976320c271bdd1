#include "detection/AppExclusions.h"

#include <gtest/gtest.h>

#include "support/FakeApplications.h"
#include "support/MemoryPreferences.h"
#include "support/SentSignals.h"

namespace tessivox::detection {
namespace {

using Apps = std::map<std::string, std::string>;
using Names = std::vector<std::string>;

class AppExclusionsTest : public ::testing::Test {
protected:
    testing::FakeApplications applications;
    testing::MemoryPreferences preferences;
    testing::SentSignals signals;
    AppExclusions exclusions{{applications, preferences, signals.analytics}};

    bool isExcluded(const std::string& bundleID) const { return exclusions.isExcludedProcess({7, bundleID}); }
    template <typename T>
    T stored(const std::string& key) const {
        return std::get<T>(preferences.value(key).value());
    }
};

TEST_F(AppExclusionsTest, CoversTheApplicationAndItsPartsAndNothingThatOnlySharesItsFirstLetters) {
    exclusions.addIgnoredApp("com.example.app", "App");
    EXPECT_TRUE(isExcluded("com.example.app"));
    EXPECT_TRUE(isExcluded("com.example.app.helper"));
    EXPECT_FALSE(isExcluded("com.example.application"));
    EXPECT_FALSE(isExcluded("com.example"));
    exclusions.removeIgnoredApp("com.example.app");
    EXPECT_FALSE(isExcluded("com.example.app"));
}

TEST_F(AppExclusionsTest, StoresEachChangeAndTellsOfIt) {
    exclusions.addIgnoredApp("a.a", "A");
    exclusions.addIgnoredApp("b.b", "B");
    exclusions.removeIgnoredApp("a.a");
    exclusions.setBuiltInExcluded("md.obsidian", false);
    exclusions.setBuiltInExcluded("app.spokenly", false);
    exclusions.setBuiltInExcluded("app.spokenly", true);
    EXPECT_EQ(stored<Apps>("callDetectionIgnoredApps"), (Apps{{"b.b", "B"}}));
    EXPECT_EQ(stored<Names>("callDetectionDisabledBuiltIns"), (Names{"md.obsidian"}));
    exclusions.restoreBuiltIns();
    EXPECT_FALSE(preferences.value("callDetectionDisabledBuiltIns"));
    EXPECT_EQ(exclusions.userIgnoredApps.get().size(), 1U) << "the user's own stay";
    EXPECT_EQ(signals.all, (Names{"setting_changed key=call_exclusion_added value=a.a",
                                  "setting_changed key=call_exclusion_added value=b.b",
                                  "setting_changed key=call_exclusion_removed value=a.a",
                                  "setting_changed key=call_exclusion_builtin_off value=md.obsidian",
                                  "setting_changed key=call_exclusion_builtin_off value=app.spokenly",
                                  "setting_changed key=call_exclusion_builtin_on value=app.spokenly",
                                  "setting_changed key=call_exclusions_restored value=true"}));
}

TEST_F(AppExclusionsTest, HoldsABuiltInExclusionUntilTheUserSwitchesItOff) {
    EXPECT_TRUE(isExcluded("md.obsidian.helper"));
    exclusions.setBuiltInExcluded("md.obsidian", false);
    EXPECT_FALSE(isExcluded("md.obsidian.helper"));
    exclusions.restoreBuiltIns();
    EXPECT_TRUE(isExcluded("md.obsidian.helper"));
    exclusions.setBuiltInExcluded("com.apple.replayd", false);
    EXPECT_TRUE(isExcluded("com.apple.replayd")) << "a part of the system cannot be switched off";
}

TEST_F(AppExclusionsTest, ReadsValuesOfOtherTypesAsEmptyAndLeavesThemUntilTheNextChange) {
    preferences.set("callDetectionIgnoredApps", std::string("com.example.app"));
    preferences.set("callDetectionDisabledBuiltIns", Apps{{"md.obsidian", "x"}});
    EXPECT_FALSE(isExcluded("com.example.app"));
    EXPECT_TRUE(isExcluded("md.obsidian"));
    EXPECT_EQ(stored<std::string>("callDetectionIgnoredApps"), "com.example.app");
    exclusions.addIgnoredApp("a.a", "A");
    EXPECT_EQ(stored<Apps>("callDetectionIgnoredApps"), (Apps{{"a.a", "A"}}));
}

TEST_F(AppExclusionsTest, ListsInstalledBuiltInsThenTheUsersOwnEachByName) {
    const auto obs = applications.install("com.obsproject.obs-studio", "OBS Studio");
    const auto notes = applications.install("md.obsidian", "");
    const auto spoken = applications.install("app.spokenly", "élan");
    const auto second = applications.install("c.c", "Renamed since");
    exclusions.setBuiltInExcluded("md.obsidian", false);
    exclusions.addIgnoredApp("a.a", "Take 10");
    exclusions.addIgnoredApp("c.c", "take 9");
    exclusions.addIgnoredApp("com.granola.app", "Granola");
    EXPECT_EQ(exclusions.exclusionRows(), (std::vector<ExclusionRow>{
                                              {"app.spokenly", "élan", spoken, true, true},
                                              {"md.obsidian", "md.obsidian", notes, true, false},
                                              {"com.obsproject.obs-studio", "OBS Studio", obs, true, true},
                                              {"c.c", "take 9", second, false, true},
                                              {"a.a", "Take 10", std::nullopt, false, true},
                                          }));
    exclusions.setBuiltInExcluded("com.granola.app", false);
    EXPECT_TRUE(isExcluded("com.granola.app")) << "the user's own list still names it";
}

TEST_F(AppExclusionsTest, AddsTheApplicationOfADesktopFile) {
    exclusions.setBuiltInExcluded("md.obsidian", false);
    EXPECT_EQ(exclusions.addApplication(applications.install("md.obsidian", "Obsidian")), "md.obsidian");
    EXPECT_TRUE(exclusions.disabledBuiltIns.get().empty());
    EXPECT_TRUE(exclusions.userIgnoredApps.get().empty());
    EXPECT_EQ(exclusions.addApplication(applications.install("a.a", "A")), "a.a");
    EXPECT_EQ(exclusions.addApplication(applications.install("b.b", "")), "b.b");
    EXPECT_EQ(exclusions.addApplication("/tmp/nothing.desktop"), std::nullopt);
    EXPECT_EQ(exclusions.userIgnoredApps.get(), (Apps{{"a.a", "A"}, {"b.b", "b.b"}}));
}

TEST_F(AppExclusionsTest, TellsWhoeverShowsTheListsWhenAnotherProcessChangesThem) {
    std::vector<std::size_t> sizes;
    const auto watch = exclusions.userIgnoredApps.observe([&](const Apps& apps) { sizes.push_back(apps.size()); });
    preferences.set("callDetectionIgnoredApps", Apps{{"a.a", "A"}});
    preferences.set("somethingElse", true);
    exclusions.addIgnoredApp("b.b", "B");
    EXPECT_EQ(sizes, (std::vector<std::size_t>{0, 1, 2}));
}

}  // namespace
}  // namespace tessivox::detection
