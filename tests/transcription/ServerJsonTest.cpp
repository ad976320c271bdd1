#include "transcription/ServerJson.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace tessivox::transcription {
namespace {

std::string usageWith(const std::string& used) {
    return R"({"usage":{"used":)" + used + R"(,"limit":5,"remaining":4,"can_transcribe":false,"resets_at":null}})";
}

TEST(ServerJsonTest, TakesIntegersOnlyAsTheyAre) {
    const auto used = [](const std::string& text) {
        const auto usage = readUsage(usageWith(text));
        return usage ? std::optional(usage->used) : std::nullopt;
    };
    EXPECT_EQ(used("-3"), -3);
    EXPECT_EQ(used("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(used("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(used("12.0"), 12);
    EXPECT_EQ(used("1e3"), 1000);
    for (const auto* bad : {"9223372036854775808", "12.5", "1e30", "-1e300", "\"12\"", "true", "null", "[]", "1e999"}) {
        EXPECT_EQ(used(bad), std::nullopt) << bad;
    }
}

TEST(ServerJsonTest, ReadsATaskWithAllItMayHold) {
    const auto task = readTaskStatus(
        R"({"task_id":"t","status":"completed","text":"\ud83d\ude00","duration_seconds":61,"provider":"p","confidence":1,)"
        R"("language_confidence":0.5,"language_code":null,"usage":{"used":1,"limit":2,"remaining":1,)"
        R"("can_transcribe":true,"resets_at":"May"},"title":"T","gist":"G","error":"E","more":{"a":[1]}})");
    ASSERT_TRUE(task);
    EXPECT_EQ(task->text, "\U0001F600");
    EXPECT_EQ(task->durationSeconds, 61);
    EXPECT_EQ(task->confidence, 1.0);
    EXPECT_EQ(task->languageConfidence, 0.5);
    EXPECT_EQ(task->languageCode, std::nullopt);
    EXPECT_EQ(task->usage, (UsageInfo{1, 2, 1, true, "May"}));
    EXPECT_EQ(task->title.value_or("") + task->gist.value_or("") + task->error.value_or(""), "TGE");
}

TEST(ServerJsonTest, RefusesARecordWithOneWrongValue) {
    for (const auto* bad :
         {R"({"task_id":"t"})", R"({"status":"pending"})", R"({"task_id":null,"status":"pending"})",
          R"({"task_id":7,"status":"pending"})", R"({"task_id":"t","status":"s","text":1})",
          R"({"task_id":"t","status":"s","usage":{}})", R"({"task_id":"t","status":"s","usage":[]})",
          R"({"task_id":"t","status":"s","duration_seconds":"5"})",
          R"({"task_id":"t","status":"s","confidence":"high"})", "{\"task_id\":\"\xff\",\"status\":\"s\"}",
          R"({"task_id":"t","status":"s"} x)", R"([{"task_id":"t","status":"s"}])", "", "null", "\"x\""}) {
        EXPECT_FALSE(readTaskStatus(bad)) << bad;
    }
    EXPECT_FALSE(readAPIError(R"({"error":"x"})"));
    EXPECT_FALSE(readSummarize(R"({"summary":null,"usage":)" + usageWith("1") + "}"));
}

TEST(ServerJsonTest, IsNotHeldUpByWhatOnlyNests) {
    const std::string deep =
        R"({"token":"t","more":)" + std::string(1'000'000, '[') + std::string(1'000'000, ']') + "}";
    EXPECT_EQ(readDeviceToken(deep), std::nullopt);
    EXPECT_EQ(readDeviceToken(R"({"token":"t","more":[[[{"a":[]}]]]})"), "t");
}

}  // namespace
}  // namespace tessivox::transcription
