#include "library/RecordingName.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "library/Recording.h"

namespace tessivox::library {
namespace {

TEST(RecordingNameTest, ATitleIsTheNameWithoutItsTimeStamp) {
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15-00_Weekly-sync"), "Weekly sync");
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15-00Weekly-sync"), "Weekly sync");
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15-00_One-to-one with Ada"), "One-to-one with Ada");
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15-00"), std::nullopt);
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15-00_-"), std::nullopt);
    EXPECT_EQ(titleFromBaseName("2026-03-02_10-15_Plan"), "2026 03 02_10 15_Plan");
    EXPECT_EQ(titleFromBaseName("Caf\u00e9-plan\u00a0\n"), "Caf\u00e9 plan");
    EXPECT_EQ(titleFromBaseName("\u3000"), std::nullopt);
    EXPECT_EQ(titleFromBaseName("caf\xe9"), std::nullopt) << "a title is UTF-8";
    EXPECT_EQ(titleFromBaseName("\xed\xa0\x80"), std::nullopt);
    EXPECT_EQ(titleFromBaseName("\xc0\xaf"), std::nullopt);
}

TEST(RecordingNameTest, NamesThatLeaveTheFolderAreHiddenOrDoNotFitAreRefusedWithASentence) {
    const std::string longest(243, 'x');
    for (const auto& name : std::vector<std::string>{"", " \n", "a/b", "/", "..", ".", ".hidden",
                                                     std::string("a\0b", 3), longest + "x", "../../etc/passwd"}) {
        try {
            requireUsableBaseName(name);
            ADD_FAILURE() << "took \"" << name << "\"";
        } catch (const RecordingNameError& error) {
            EXPECT_TRUE(error.description().ends_with('.')) << error.description();
        }
    }
    for (const auto& name : std::vector<std::string>{longest, "-rf", "a\nb", "\"'$(x)`", "\u4f1a\u8b70 2", "caf\xe9",
                                                     "a..b", "~", "a.m4a"})
        EXPECT_NO_THROW(requireUsableBaseName(name)) << name;
}

TEST(RecordingNameTest, SerialisesEveryNameAndKeepsEveryByteOfItsPath) {
    Recording recording{"id-1",
                        "/r/caf\xe9 100%.m4a",
                        base::WallTime(std::chrono::sys_days(std::chrono::year(2026) / 3 / 2)) + std::chrono::hours(10),
                        61.5,
                        "caf\xe9 100%",
                        {{"/r/\n_mic.m4a", "Microphone"}}};
    const auto text = jsonText(nlohmann::json(std::vector{recording}));
    const auto json = nlohmann::json::parse(text).at(0);
    EXPECT_EQ(json.size(), 6U);
    EXPECT_EQ(json.at("id"), "id-1");
    EXPECT_EQ(json.at("url"), "file:///r/caf%E9%20100%25.m4a");
    EXPECT_EQ(json.at("date"), "2026-03-02T10:00:00.000Z");
    EXPECT_EQ(json.at("duration"), 61.5);
    EXPECT_EQ(json.at("name"), "caf\ufffd 100%");
    EXPECT_EQ(json.at("subTracks"), nlohmann::json::parse(R"([{"label":"Microphone","url":"file:///r/%0A_mic.m4a"}])"));
}

}  // namespace
}  // namespace tessivox::library
