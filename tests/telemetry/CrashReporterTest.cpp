#include "services/telemetry/CrashReporter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/MemoryPreferences.h"

namespace tessivox::telemetry {
namespace {

class CrashReporterTest : public ::testing::Test, public CrashSink {
protected:
    void start(const CrashOptions& options) override {
        told.push_back("start");
        started = options;
    }
    void setScope(const CrashScope& scope) override {
        std::string line = "scope " + scope.userID;
        for (const auto& [key, value] : scope.tags) line += " " + key + "=" + value;
        told.push_back(line);
    }
    void addBreadcrumb(const Breadcrumb& crumb) override {
        std::string line = crumb.category + " " + std::string(levelName(crumb.level)) + ": " + crumb.message;
        for (const auto& [key, value] : crumb.data) line += " " + key + "=" + value;
        told.push_back(line);
    }

    CrashReporter reporter(BuildInfo build = {"1.2", "34"}) {
        return {*this, preferences, [this](std::span<std::byte> bytes) { std::ranges::fill(bytes, ++lastRandom); },
                std::move(build), "https://example.invalid/1"};
    }

    struct Counter {
        std::byte value{0x10};
        std::byte operator++() { return value = static_cast<std::byte>(std::to_integer<int>(value) + 1); }
    };
    testing::MemoryPreferences preferences;
    Counter lastRandom;
    std::optional<CrashOptions> started;
    std::vector<std::string> told;
};

using Lines = std::vector<std::string>;

TEST_F(CrashReporterTest, StartsTheSinkThenTagsEveryReport) {
    reporter().start();
    const std::string device = "11111111-1111-4111-9111-111111111111";
    EXPECT_EQ(told, (Lines{"start", "scope " + device + " app_version=1.2 build_number=34 device_id=" + device,
                           "app info: App started"}));
    ASSERT_TRUE(started);
    EXPECT_EQ(started->dsn, "https://example.invalid/1");
    EXPECT_EQ(started->tracesSampleRate, 0.1);
    EXPECT_TRUE(started->enableAppHangTracking);
    EXPECT_EQ(started->appHangTimeoutInterval, std::chrono::seconds(3));
    EXPECT_EQ(started->environment, "production");
    EXPECT_FALSE(started->beforeSend({{{"App Hanging", "", {}}}, {}}));
}

TEST_F(CrashReporterTest, LeavesTheScopeUnsetWhereVersionOrBuildIsMissing) {
    reporter({"1.2", ""}).start();
    reporter({"", "34"}).start();
    EXPECT_EQ(told, (Lines{"start", "app info: App started", "start", "app info: App started"}));
}

TEST_F(CrashReporterTest, MakesTheDeviceIdentifierOnce) {
    const auto first = reporter().deviceID();
    EXPECT_EQ(reporter().deviceID(), first);
    EXPECT_EQ(preferences.value("deviceID"), base::PreferenceValue(first));
    preferences.set("deviceID", true);
    EXPECT_EQ(reporter().deviceID(), "12121212-1212-4212-9212-121212121212");
}

TEST_F(CrashReporterTest, WritesEachBreadcrumbInItsWords) {
    auto front = reporter();
    front.recordingStarted("toast");
    front.recordingStopped(std::chrono::milliseconds(12999));
    front.transcriptionStarted("a.m4a");
    front.transcriptionFailed("a.m4a", "No network");
    front.error("Import failed");
    front.error("Import failed", std::make_exception_ptr(std::runtime_error("The disk is full.")));
    front.addBreadcrumb("Call ended", "call", BreadcrumbLevel::info);
    EXPECT_EQ(
        told,
        (Lines{"recording info: Recording started source=toast", "recording info: Recording stopped duration=12",
               "transcription info: Transcription started file=a.m4a",
               "transcription error: Transcription failed error=No network file=a.m4a", "error error: Import failed",
               "error error: Import failed error=The disk is full.", "call info: Call ended"}));
}

TEST(BeforeSendTest, DropsOnlyHangReportsWithoutOwnCode) {
    const StackFrame own{1, true};
    const StackFrame foreign{2, false};
    EXPECT_TRUE(beforeSend({}));
    EXPECT_TRUE(beforeSend({{{"SIGSEGV", "", {foreign}}}, {}}));
    EXPECT_TRUE(beforeSend({{{"SIGABRT", "App Hanging", {}}}, {}})) << "only the type counts";
    EXPECT_FALSE(beforeSend({{{"App Hanging", "", {}}}, {}}));
    EXPECT_FALSE(
        beforeSend({{{"SIGSEGV", "", {}}, {"App Hanging Fully Blocked", "", {foreign}}}, {{"main", {foreign}}}}));
    EXPECT_TRUE(beforeSend({{{"App Hanging", "", {foreign, own}}}, {}}));
    EXPECT_TRUE(beforeSend({{{"App Hanging", "", {}}}, {{"main", {}}, {"write", {own}}}}));
}

}  // namespace
}  // namespace tessivox::telemetry
