#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "app/CommandLine.h"
#include "app/ExitCode.h"
#include "audio/ports/AudioDevices.h"
#include "base/ports/Files.h"
#include "core/AppSettings.h"

namespace tessivox::app {

/// Why a command does not even begin: a sentence that says what to do.
struct Refusal {
    std::string sentence;
    ExitCode code = ExitCode::failed;
};

/// Lets the options hide what the settings say; all but a microphone's name, which needs the devices. The settings
/// stand on an overlay, so nothing is stored. Refused if no source is left.
std::optional<Refusal> applyOptions(const RecordOptions& options, core::AppSettings& settings);

/// The uid of the microphone of that uid or display name; the letters' case of a name does not matter.
std::variant<std::string, Refusal> findMicrophone(const audio::AudioDeviceSnapshot& snapshot, const std::string& name);

/// Whether a recording can be saved there without overwriting anything. Tries to write into the folder.
std::optional<Refusal> outputRefusal(base::Files& files, const std::filesystem::path& output, bool savesSeparateTracks);

/// Whether recordings can be saved in the folder. Tries it.
std::optional<Refusal> folderRefusal(base::Files& files, const std::filesystem::path& folder);

}  // namespace tessivox::app
