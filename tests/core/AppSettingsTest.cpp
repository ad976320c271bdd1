#include "core/AppSettings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Error.h"
#include "core/JsonPreferences.h"
#include "core/PreferencesOverlay.h"
#include "support/CrashingFiles.h"
#include "support/ManualRuntime.h"

namespace tessivox::core {
namespace {

const std::filesystem::path kFile = "/home/user/.config/Tessivox/settings.json";
const base::StandardFolders kFolders{"/home/user/Documents", "/home/user/.local/share", "/home/user/.config", "/tmp"};

struct FakeChooser final : FolderChooser {
    std::optional<std::filesystem::path> answer;
    base::Task<std::optional<std::filesystem::path>> chooseFolder(std::string, std::string) override {
        co_return answer;
    }
};

struct FakeLoginItem final : LoginItem {
    std::vector<std::string> calls;
    bool fails = false;
    void registerItem() override { note("register"); }
    void unregisterItem() override { note("unregister"); }
    void note(const std::string& call) {
        calls.push_back(call);
        if (fails) throw base::Error("test", 1, "The list cannot be changed.");
    }
};

class AppSettingsTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles files;
    FakeChooser chooser;
    FakeLoginItem loginItem;
    JsonPreferences store{files, time, kFile, [](const std::string& sentence) { ADD_FAILURE() << sentence; }};
    AppSettings settings{store, files, kFolders, chooser, loginItem};

    nlohmann::json stored() { return nlohmann::json::parse(files.readAll(kFile, 1 << 20)); }
    void edit(const std::string& contents) {
        files.put(kFile, contents);
        files.emitChanges();
    }
};

TEST_F(AppSettingsTest, MakesTheDefaultFolderUnderDocumentsOnAFirstRunAndStoresNothing) {
    EXPECT_EQ(settings.recordingsDirectoryPath.get(), "/home/user/Documents/TessivoxRecordings");
    EXPECT_TRUE(files.status("/home/user/Documents/TessivoxRecordings")->isFolder);
    EXPECT_FALSE(files.exists(kFile));
    EXPECT_TRUE(loginItem.calls.empty());
}

TEST_F(AppSettingsTest, HasTheAgreedKeysAndDefaults) {
    const auto flip = [](Setting<bool>& setting) { setting.set(!setting.get()); };
    for (auto* setting :
         {&settings.autoStartRecording, &settings.autoStopRecording, &settings.showRecordingPrompt,
          &settings.launchAtLogin, &settings.recordSystemAudio, &settings.recordMicrophone, &settings.autoTranscribe,
          &settings.autoSummarize, &settings.analyticsEnabled, &settings.hasCompletedOnboarding,
          &settings.marketingConsent, &settings.marketingPromptAnswered, &settings.marketingConfirmed,
          &settings.showInDock, &settings.saveSeparateTracks})
        flip(*setting);
    for (auto* setting : {&settings.recordingsDirectoryPath, &settings.selectedMicrophoneID, &settings.userEmail,
                          &settings.marketingConfirmationSentTo})
        setting->set(setting->get() + "+");
    settings.onboardingStep.set(settings.onboardingStep.get() + 1);
    EXPECT_EQ(settings.audioQuality.get(), AudioQuality::medium);
    settings.audioQuality.set(AudioQuality::high);
    EXPECT_EQ(stored(), nlohmann::json::parse(R"({
        "recordingsDirectory": "/home/user/Documents/TessivoxRecordings+", "selectedMicrophoneID": "+",
        "autoStartRecording": true, "autoStopRecording": true, "showRecordingPrompt": false, "launchAtLogin": false,
        "recordSystemAudio": false, "recordMicrophone": false, "audioQuality": "high", "autoTranscribe": false,
        "autoSummarize": true, "analyticsEnabled": false, "hasCompletedOnboarding": true, "onboardingStep": 1,
        "userEmail": "+", "marketingConsent": true, "marketingPromptAnswered": true,
        "marketingConfirmationSentTo": "+", "marketingConfirmed": true, "showInDock": false,
        "saveSeparateTracks": true})"));
}

TEST_F(AppSettingsTest, ReadsValuesOfOtherTypesAndUnknownQualitiesAsAbsent) {
    edit(R"({"audioQuality": "ultra", "recordMicrophone": "no", "onboardingStep": 2.5, "userEmail": ["a"]})");
    EXPECT_EQ(settings.audioQuality.get(), AudioQuality::medium);
    EXPECT_TRUE(settings.recordMicrophone.get());
    EXPECT_EQ(settings.onboardingStep.get(), 0);
    EXPECT_EQ(settings.userEmail.get(), "");
    edit(R"({"audioQuality": 3})");
    EXPECT_EQ(settings.audioQuality.get(), AudioQuality::medium);
}

TEST_F(AppSettingsTest, TellsObserversOfTheirOwnSettingOnlyAndShowsAllOthersAlreadyChanged) {
    std::vector<AudioQuality> seen;
    bool separateTracksSeen = false;
    const auto subscription = settings.audioQuality.observe([&](const AudioQuality& quality) {
        seen.push_back(quality);
        separateTracksSeen = settings.saveSeparateTracks.get();
    });
    settings.userEmail.set("a@example.org");
    edit(R"({"audioQuality": "low", "saveSeparateTracks": true})");
    EXPECT_EQ(seen, (std::vector{AudioQuality::medium, AudioQuality::low}));
    EXPECT_TRUE(separateTracksSeen);
}

TEST_F(AppSettingsTest, RegistersTheLoginItemOnceForEachChangeByTheUser) {
    settings.launchAtLogin.set(true);
    EXPECT_TRUE(loginItem.calls.empty()) << "it was on already";
    settings.launchAtLogin.set(false);
    settings.launchAtLogin.set(true);
    EXPECT_EQ(loginItem.calls, (std::vector<std::string>{"unregister", "register"}));
    edit(R"({"launchAtLogin": false})");
    EXPECT_EQ(loginItem.calls.size(), 2U) << "an edited file is not the user's switch";
}

TEST_F(AppSettingsTest, KeepsTheChoiceWhenTheLoginItemCannotBeChanged) {
    loginItem.fails = true;
    settings.launchAtLogin.set(false);
    EXPECT_FALSE(settings.launchAtLogin.get());
}

TEST_F(AppSettingsTest, TakesAChosenFolderAndChangesNothingWhenTheChooserIsCancelled) {
    EXPECT_EQ(testing::await(time, settings.chooseRecordingsFolder()), std::nullopt);
    EXPECT_FALSE(files.exists(kFile));
    chooser.answer = "/srv/meetings";
    EXPECT_EQ(testing::await(time, settings.chooseRecordingsFolder()), std::filesystem::path("/srv/meetings"));
    EXPECT_EQ(settings.recordingsDirectoryPath.get(), "/srv/meetings");
}

TEST_F(AppSettingsTest, HidesStoredValuesBehindAnOverlayWithoutStoringAnything) {
    edit(R"({"audioQuality": "low", "selectedMicrophoneID": "usb", "userEmail": "a@example.org"})");
    PreferencesOverlay overlay(store);
    AppSettings covered(overlay, files, kFolders, chooser, loginItem);
    covered.audioQuality.set(AudioQuality::high);
    overlay.set("selectedMicrophoneID", std::nullopt);
    EXPECT_EQ(covered.audioQuality.get(), AudioQuality::high);
    EXPECT_EQ(covered.selectedMicrophoneID.get(), "");
    EXPECT_EQ(settings.audioQuality.get(), AudioQuality::low);
    edit(R"({"audioQuality": "medium", "userEmail": "b@example.org"})");
    EXPECT_EQ(covered.audioQuality.get(), AudioQuality::high);
    EXPECT_EQ(covered.userEmail.get(), "b@example.org") << "what is not hidden stays live";
}

}  // namespace
}  // namespace tessivox::core
