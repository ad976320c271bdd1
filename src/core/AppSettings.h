#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "base/StandardFolders.h"
#include "base/Task.h"
#include "base/ports/Files.h"
#include "base/ports/Preferences.h"
#include "core/AudioQuality.h"
#include "core/Setting.h"
#include "core/ports/FolderChooser.h"
#include "core/ports/LoginItem.h"

namespace tessivox::core {

/// Stored by name; an unknown name reads as absent.
template <>
struct SettingType<AudioQuality> {
    static std::optional<AudioQuality> fromStored(const base::PreferenceValue& value) {
        const auto* name = std::get_if<std::string>(&value);
        return name ? audioQuality(*name) : std::nullopt;
    }
    static base::PreferenceValue toStored(AudioQuality value) { return std::string(rawValue(value)); }
};

/// The user's preferences, each bound to its key in the store: a write is durable at once and every observer hears of
/// it. Main thread.
class AppSettings {
    // The constructors of the settings below need these first.
    base::Preferences& store_;
    base::Files& files_;
    FolderChooser& chooser_;
    LoginItem& loginItem_;
    std::filesystem::path defaultRecordingsFolder_;

public:
    /// Makes the recordings folder if there is none.
    AppSettings(base::Preferences& store, base::Files& files, const base::StandardFolders& folders,
                FolderChooser& chooser, LoginItem& loginItem);

    Setting<std::string> recordingsDirectoryPath{store_, "recordingsDirectory", defaultRecordingsFolder_.string()};
    /// uid of the input; empty means the system's default.
    Setting<std::string> selectedMicrophoneID{store_, "selectedMicrophoneID", ""};
    Setting<bool> autoStartRecording{store_, "autoStartRecording", false};
    Setting<bool> autoStopRecording{store_, "autoStopRecording", false};
    Setting<bool> showRecordingPrompt{store_, "showRecordingPrompt", true};
    /// Setting it registers or unregisters the login item. The default of true registers nothing by itself.
    Setting<bool> launchAtLogin{store_, "launchAtLogin", true, [this](bool isOn) { applyLaunchAtLogin(isOn); }};
    Setting<bool> recordSystemAudio{store_, "recordSystemAudio", true};
    Setting<bool> recordMicrophone{store_, "recordMicrophone", true};
    Setting<AudioQuality> audioQuality{store_, "audioQuality", AudioQuality::medium};
    Setting<bool> autoTranscribe{store_, "autoTranscribe", true};
    Setting<bool> autoSummarize{store_, "autoSummarize", false};
    Setting<bool> analyticsEnabled{store_, "analyticsEnabled", true};
    Setting<bool> hasCompletedOnboarding{store_, "hasCompletedOnboarding", false};
    Setting<std::int64_t> onboardingStep{store_, "onboardingStep", 0};
    Setting<std::string> userEmail{store_, "userEmail", ""};
    Setting<bool> marketingConsent{store_, "marketingConsent", false};
    Setting<bool> marketingPromptAnswered{store_, "marketingPromptAnswered", false};
    Setting<std::string> marketingConfirmationSentTo{store_, "marketingConfirmationSentTo", ""};
    Setting<bool> marketingConfirmed{store_, "marketingConfirmed", false};
    Setting<bool> showInDock{store_, "showInDock", true};
    Setting<bool> saveSeparateTracks{store_, "saveSeparateTracks", false};

    /// Makes the folder at recordingsDirectoryPath, with its parents, if nothing is there. A failure is ignored here:
    /// whoever writes into it reports it.
    void ensureRecordingsFolder();

    /// Asks the user for a recordings folder. Absent, and nothing changed, if the user cancelled. Recordings in the
    /// old folder stay there.
    base::Task<std::optional<std::filesystem::path>> chooseRecordingsFolder();

private:
    void applyLaunchAtLogin(bool isOn);
};

}  // namespace tessivox::core
