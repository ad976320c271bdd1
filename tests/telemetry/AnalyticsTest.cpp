#include "services/telemetry/Analytics.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "base/Log.h"
#include "support/MemoryPreferences.h"

namespace tessivox::telemetry {
namespace {

/// Writes down, in order, what went out and what was logged.
class AnalyticsTest : public ::testing::Test, public AnalyticsSink {
protected:
    AnalyticsTest() {
        base::setLogSink([this](std::string_view line) { told.emplace_back(line); });
    }
    ~AnalyticsTest() override { base::setLogSink(nullptr); }

    void initialise(std::string_view appID) override { told.push_back("initialise " + std::string(appID)); }
    void send(std::string_view name, const Parameters& parameters) override {
        std::string line = "send " + std::string(name);
        for (const auto& [key, value] : parameters) line += " " + key + "=" + value;
        told.push_back(line);
    }
    void sendActivation(std::string_view feature) override { told.push_back("activate " + std::string(feature)); }

    Analytics analytics(std::string version = "1.0") {
        return {*this, preferences, [this] { return isEnabled; }, std::move(version)};
    }
    std::vector<std::string> toldBy(const std::function<void()>& action) {
        told.clear();
        action();
        return told;
    }
    void run(const std::string& version) { analytics(version).start(); }
    std::string lastRunVersion() const {
        const auto value = preferences.value("lastRunAppVersion");
        return value ? std::get<std::string>(*value) : "none";
    }

    using Lines = std::vector<std::string>;
    const Lines kStart{"initialise 5D0C7E21-9A34-4F6B-8C1E-2B7A90D3F146",
                       "[Analytics] Initialized with appID: 5D0C7E21-9A34-4F6B-8C1E-2B7A90D3F146"};
    testing::MemoryPreferences preferences;
    bool isEnabled = true;
    Lines told;
};

TEST_F(AnalyticsTest, SendsASignalAndSaysSoOrSkipsItAndSaysSo) {
    auto front = analytics();
    EXPECT_EQ(toldBy([&] {
                  front.track(AnalyticsEvent::recordingStopped, {{"duration_sec", "12"}});
              }),
              (Lines{"send recording_stopped duration_sec=12", "[Analytics] Sent: recording_stopped"}));
    isEnabled = false;
    EXPECT_EQ(toldBy([&] { front.track(AnalyticsEvent::analyticsDisabled); }),
              (Lines{"[Analytics] Skipped (disabled): analytics_disabled"}));
    isEnabled = true;
    EXPECT_EQ(toldBy([&] { front.track(AnalyticsEvent::appTerminated); }),
              (Lines{"send app_terminated", "[Analytics] Sent: app_terminated"}));
}

using AnalyticsDeathTest = AnalyticsTest;

TEST_F(AnalyticsDeathTest, CatchesAParameterThatIsNotTheEvents) {
    auto front = analytics();
    const Parameters foreign{{"duration", "12"}};
    EXPECT_DEBUG_DEATH(front.track(AnalyticsEvent::recordingStopped, foreign), "does not give this event");
}

TEST_F(AnalyticsTest, TellsOfAnUpdateBetweenTwoStarts) {
    EXPECT_EQ(toldBy([&] { run("1.0"); }), kStart);
    EXPECT_EQ(toldBy([&] { run("1.0"); }), kStart);
    auto updated = kStart;
    updated.insert(updated.end(), {"send update_installed from=1.0 to=1.1", "[Analytics] Sent: update_installed"});
    EXPECT_EQ(toldBy([&] { run("1.1"); }), updated);
    auto downgraded = kStart;
    downgraded.insert(downgraded.end(),
                      {"send update_installed from=1.1 to=1.0", "[Analytics] Sent: update_installed"});
    EXPECT_EQ(toldBy([&] { run("1.0"); }), downgraded);
}

TEST_F(AnalyticsTest, NeverTellsLaterOfAnUpdateThatCameWhileItWasOff) {
    run("1.0");
    isEnabled = false;
    auto skipped = kStart;
    skipped.push_back("[Analytics] Skipped (disabled): update_installed");
    EXPECT_EQ(toldBy([&] { run("1.1"); }), skipped);
    EXPECT_EQ(lastRunVersion(), "1.1");
    isEnabled = true;
    EXPECT_EQ(toldBy([&] { run("1.1"); }), kStart);
}

TEST_F(AnalyticsTest, ComparesNothingWithoutAVersion) {
    EXPECT_EQ(toldBy([&] { run(""); }), kStart);
    EXPECT_EQ(lastRunVersion(), "none");
    preferences.set("lastRunAppVersion", std::int64_t{1});
    EXPECT_EQ(toldBy([&] { run("1.0"); }), kStart) << "a version of another type is none";
}

TEST_F(AnalyticsTest, ReportsTheFirstRecordingOnceAndOnlyWhileItIsOn) {
    auto front = analytics();
    isEnabled = false;
    EXPECT_EQ(toldBy([&] { front.reportFirstRecording(); }), Lines{});
    isEnabled = true;
    EXPECT_EQ(toldBy([&] { front.reportFirstRecording(); }),
              (Lines{"activate first_recording", "[Analytics] Sent activation: first_recording"}));
    EXPECT_EQ(toldBy([&] { analytics().reportFirstRecording(); }), Lines{});
}

}  // namespace
}  // namespace tessivox::telemetry
