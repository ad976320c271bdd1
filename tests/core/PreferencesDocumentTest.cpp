#include "core/PreferencesDocument.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace tessivox::core {
namespace {

using base::PreferenceValue;
using Strings = std::vector<std::string>;

TEST(PreferencesDocumentTest, ReadsEveryTypeAndTakesOthersAsAbsent) {
    const auto document = PreferencesDocument::parsed(
        R"({"yes": true, "seven": 7, "half": 0.5, "text": "hé", "list": ["a", "b"], "none": [],
            "map": {"a": "b"}, "null": null, "object": {"a": 1}, "mixed": ["a", 1], "huge": 9223372036854775808})");
    ASSERT_TRUE(document);
    EXPECT_EQ(document->value("yes"), PreferenceValue(true));
    EXPECT_EQ(document->value("seven"), PreferenceValue(std::int64_t{7}));
    EXPECT_EQ(document->value("half"), PreferenceValue(0.5));
    EXPECT_EQ(document->value("text"), PreferenceValue(std::string("hé")));
    EXPECT_EQ(document->value("list"), PreferenceValue(Strings{"a", "b"}));
    EXPECT_EQ(document->value("none"), PreferenceValue(Strings{}));
    EXPECT_EQ(document->value("map"), PreferenceValue(std::map<std::string, std::string>{{"a", "b"}}));
    for (const auto* other : {"null", "object", "mixed", "huge", "missing"}) EXPECT_FALSE(document->value(other));
}

TEST(PreferencesDocumentTest, KeepsMembersThatNoPreferenceCanHave) {
    auto document = PreferencesDocument::parsed(R"({"object": {"a": [1, null]}, "huge": 18446744073709551615})");
    ASSERT_TRUE(document);
    document->set("added", PreferenceValue(std::string("x")));
    document->set("object2", std::nullopt);
    EXPECT_EQ(nlohmann::json::parse(document->text()),
              nlohmann::json::parse(R"({"object": {"a": [1, null]}, "huge": 18446744073709551615, "added": "x"})"));
}

TEST(PreferencesDocumentTest, RefusesWhatIsNoWholeObject) {
    const std::string nested = "{\"a\":" + std::string(300000, '[') + std::string(300000, ']') + "}";
    const std::string tooLong = "{\"a\":\"" + std::string(PreferencesDocument::kMaxSize, 'x') + "\"}";
    for (const std::string& text : {std::string(), std::string("{\"a\": 1"), std::string("[1]"), std::string("7"),
                                    std::string("{\"a\": \"\xff\"}"), std::string("{\"a\": 1e999}"), nested, tooLong})
        EXPECT_FALSE(PreferencesDocument::parsed(text)) << text.substr(0, 40);
}

TEST(PreferencesDocumentTest, WritesTextThatReadsBackEvenFromBrokenUTF8) {
    PreferencesDocument document;
    document.set("path", PreferenceValue(std::string("/a\xff/b")));
    const auto again = PreferencesDocument::parsed(document.text());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->value("path"), PreferenceValue(std::string("/a\xEF\xBF\xBD/b")));
}

}  // namespace
}  // namespace tessivox::core
