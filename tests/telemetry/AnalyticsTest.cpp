#include "services/telemetry/Analytics.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/Log.h"
#include "services/telemetry/Vocabulary.h"
#include "support/MemoryPreferences.h"

namespace tessivox::telemetry {
namespace {

/// In the enumeration's order: a signal's name, then all parameters that it may carry.
constexpr std::array kSignals{
    "app_launched",
    "app_terminated",
    "update_available",
    "update_installed from to",
    "setting_changed key value",
    "onboarding_started",
    "onboarding_step_viewed step resumed",
    "onboarding_completed",
    "onboarding_skipped step",
    "acquisition_source source detail",
    "marketing_consent consent source",
    "permission_result type granted",
    "permission_state mic screen",
    "transcription_blocked reason attempt_id",
    "recording_started source mic system audio_quality",
    "recording_stopped duration_sec",
    "recording_finalize_failed rescued duration_sec",
    "recording_recovered count",
    "recording_paused",
    "recording_resumed",
    "transcription_started attempt_id source resumed duration_sec file_size_kb upload_kb",
    "transcription_completed attempt_id source resumed duration_sec file_size_kb upload_kb has_gist result",
    "transcription_failed attempt_id source resumed duration_sec file_size_kb upload_kb stage upload_retries reason "
    "error_code error_domain app_version",
    "transcription_resumed age_min",
    "survey_shown survey_id forced",
    "survey_answered survey_id forced answer",
    "survey_dismissed survey_id forced action",
    "survey_comment_sent survey_id forced",
    "settings_opened",
    "about_opened",
    "recordings_list_opened",
    "recording_deleted",
    "recording_renamed",
    "recording_revealed",
    "recording_played",
    "transcript_opened",
    "summary_opened",
    "reader_copy kind",
    "reader_share kind",
    "open_recordings_folder",
    "check_for_updates",
    "feedback_opened",
    "message_sent has_email",
    "summary_generated mode",
    "summary_failed mode reason",
    "call_detected is_new_call trigger_app all_apps",
    "recording_prompt_shown trigger_app hold_sec",
    "recording_prompt_accepted trigger_app hold_sec",
    "recording_prompt_declined trigger_app hold_sec",
    "stop_prompt_shown",
    "stop_prompt_accepted",
    "stop_prompt_declined",
    "recording_prompt_timeout trigger_app hold_sec",
    "recording_prompt_app_ignored trigger_app hold_sec",
    "call_ended trigger_app hold_sec",
    "audio_file_imported original_format converted",
    "audio_file_import_failed reason format",
    "analytics_disabled",
};

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

TEST(VocabularyTest, GivesEachEventItsNameAndExactlyItsParameters) {
    ASSERT_EQ(kVocabulary.size(), kSignals.size());
    std::set<std::string> everyParameter;
    for (const auto* line : kSignals) {
        const auto parts = words(line);
        everyParameter.insert(parts.begin() + 1, parts.end());
    }
    for (std::size_t index = 0; index < kSignals.size(); ++index) {
        const auto event = static_cast<AnalyticsEvent>(index);
        const auto parts = words(kSignals[index]);
        EXPECT_EQ(signalName(event), parts.front());
        const std::set<std::string> own(parts.begin() + 1, parts.end());
        for (const auto& parameter : everyParameter) {
            EXPECT_EQ(rowOf(event).allows(parameter), own.contains(parameter)) << parts.front() << " " << parameter;
        }
        EXPECT_FALSE(rowOf(event).allows(""));
    }
}

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
