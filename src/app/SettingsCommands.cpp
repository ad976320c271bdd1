#include "app/SettingsCommands.h"

#include <algorithm>
#include <filesystem>
#include <variant>

#include "base/Text.h"
#include "core/AudioQuality.h"
#include "transcription/ServerAddress.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;

constexpr std::string_view kServerKey = "serverURL";
constexpr std::string_view kFolderKey = "recordingsDirectory";

std::optional<bool> truth(std::string_view text) {
    if (text == "on" || text == "true") return true;
    if (text == "off" || text == "false") return false;
    return std::nullopt;
}

}  // namespace

SettingsCommands::SettingsCommands(const Parts& parts) : parts_(parts) {
    auto& settings = parts_.settings;
    keys_ = {
        recordingsFolder(),
        microphone(settings.selectedMicrophoneID),
        onOrOff("recordMicrophone", settings.recordMicrophone),
        onOrOff("recordSystemAudio", settings.recordSystemAudio),
        quality(),
        onOrOff("saveSeparateTracks", settings.saveSeparateTracks),
        onOrOff("showRecordingPrompt", settings.showRecordingPrompt),
        onOrOff("autoStartRecording", settings.autoStartRecording),
        onOrOff("autoStopRecording", settings.autoStopRecording),
        onOrOff("autoTranscribe", settings.autoTranscribe),
        onOrOff("autoSummarize", settings.autoSummarize),
        server(),
        onOrOff("launchAtLogin", settings.launchAtLogin),
        onOrOff("showInDock", settings.showInDock),
        onOrOff("analyticsEnabled", settings.analyticsEnabled),
    };
}

ExitCode SettingsCommands::get(const std::optional<std::string>& key) const {
    if (!key) {
        std::string text;
        for (const auto& each : keys_) text += std::string(each.name) + "=" + printable(each.get()) + "\n";
        parts_.console.result(text);
        return ExitCode::done;
    }
    const auto* known = find(*key);
    if (!known) return refuse("\"{0}\" is not a setting: \"tessivox get\" lists them.", *key);
    parts_.console.result(known->get() + "\n");
    return ExitCode::done;
}

ExitCode SettingsCommands::set(const std::string& key, const std::string& value) const {
    const auto* known = find(key);
    if (!known) return refuse("\"{0}\" is not a setting: \"tessivox get\" lists them.", key);
    // The value is not repeated: it may hold a secret.
    if (!base::isUTF8(value) || !known->set(value))
        return refuse("{0} cannot be that: give {1}.", key, known->expected);
    return ExitCode::done;
}

const SettingsCommands::Key* SettingsCommands::find(const std::string& name) const {
    const auto found = std::ranges::find(keys_, name, &Key::name);
    return found == keys_.end() ? nullptr : &*found;
}

ExitCode SettingsCommands::refuse(std::string_view english, const std::string& first, std::string_view second) const {
    parts_.console.message(filled(localized(english), {printable(first), second}));
    return ExitCode::usage;
}

SettingsCommands::Key SettingsCommands::recordingsFolder() const {
    const auto get = [this] { return parts_.settings.recordingsDirectoryPath.get(); };
    const auto set = [this](const std::string& value) {
        if (value.empty()) {
            parts_.preferences.set(kFolderKey, std::nullopt);
            return true;
        }
        auto folder = std::filesystem::absolute(value).lexically_normal();
        if (!folder.has_filename()) folder = folder.parent_path();
        const auto status = parts_.files.status(folder);
        if (!base::isUTF8(folder.string()) || (status && !status->isFolder)) return false;
        parts_.files.makeFolders(folder);
        parts_.settings.recordingsDirectoryPath.set(folder.string());
        return true;
    };
    return {kFolderKey, "a folder, or \"\" for the one in Documents", get, set};
}

SettingsCommands::Key SettingsCommands::microphone(core::Setting<std::string>& setting) {
    const auto get = [&setting] {
        const auto uid = setting.get();
        return uid.empty() ? std::string("default") : uid;
    };
    const auto set = [&setting](const std::string& value) {
        setting.set(value == "default" ? "" : value);
        return true;
    };
    return {"selectedMicrophoneID", "a uid that \"tessivox devices\" shows, or default", get, set};
}

SettingsCommands::Key SettingsCommands::quality() const {
    auto& setting = parts_.settings.audioQuality;
    const auto get = [&setting] { return std::string(core::rawValue(setting.get())); };
    const auto set = [&setting](const std::string& value) {
        const auto wanted = core::audioQuality(value);
        if (wanted) setting.set(*wanted);
        return wanted.has_value();
    };
    return {"audioQuality", "low, medium or high", get, set};
}

SettingsCommands::Key SettingsCommands::server() const {
    const auto get = [this] {
        const auto value = parts_.preferences.value(kServerKey);
        const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
        return text && !text->empty() ? transcription::maskedURL(*text) : std::string();
    };
    const auto set = [this](const std::string& value) {
        if (!value.empty() && !transcription::baseURLOf(value)) return false;
        parts_.preferences.set(kServerKey, value.empty() ? std::nullopt : std::optional<base::PreferenceValue>(value));
        return true;
    };
    return {
        kServerKey,
        "an address like https://example.org/api, or http:// on this computer, or \"\" for this computer's own server",
        get, set};
}

SettingsCommands::Key SettingsCommands::onOrOff(std::string_view name, core::Setting<bool>& setting) {
    const auto get = [&setting] { return std::string(setting.get() ? "on" : "off"); };
    const auto set = [&setting](const std::string& value) {
        const auto wanted = truth(value);
        if (wanted) setting.set(*wanted);
        return wanted.has_value();
    };
    return {name, "on or off", get, set};
}

}  // namespace tessivox::app
