#include "core/AppSettings.h"

#include "base/Error.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::core {

AppSettings::AppSettings(base::Preferences& store, base::Files& files, const base::StandardFolders& folders,
                         FolderChooser& chooser, LoginItem& loginItem)
    : store_(store),
      files_(files),
      chooser_(chooser),
      loginItem_(loginItem),
      defaultRecordingsFolder_(folders.documents / "TessivoxRecordings") {
    ensureRecordingsFolder();
}

void AppSettings::ensureRecordingsFolder() {
    const std::filesystem::path folder = recordingsDirectoryPath.get();
    if (files_.exists(folder)) return;
    try {
        files_.makeFolders(folder);
    } catch (const base::FileError& error) {
        base::log("The recordings folder could not be made: " + error.description());
    }
}

base::Task<std::optional<std::filesystem::path>> AppSettings::chooseRecordingsFolder() {
    auto prompt = base::localized("Select");
    auto message = base::localized("Choose a folder to save recordings");
    auto choice = co_await chooser_.chooseFolder(std::move(prompt), std::move(message));
    if (choice) recordingsDirectoryPath.set(choice->string());
    co_return choice;
}

void AppSettings::applyLaunchAtLogin(bool isOn) {
    try {
        isOn ? loginItem_.registerItem() : loginItem_.unregisterItem();
    } catch (const base::Error& error) {
        base::log("Failed to update launch at login: " + error.description());
    }
}

}  // namespace tessivox::core
