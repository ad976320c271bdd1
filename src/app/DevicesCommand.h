#pragma once

#include <string>

#include "app/CommandLine.h"
#include "app/Console.h"
#include "app/ExitCode.h"
#include "audio/ports/AudioDevices.h"
#include "base/Task.h"

namespace tessivox::app {

/// `tessivox devices`: writes what the sound server has to standard output.
base::Task<ExitCode> listDevices(DevicesOptions options, audio::AudioDevices& devices, Console& console);

/// The lines for people.
std::string devicesText(const audio::AudioDeviceSnapshot& snapshot);
/// The object that `--help` describes, indented, with a newline at the end.
std::string devicesJSON(const audio::AudioDeviceSnapshot& snapshot);

}  // namespace tessivox::app
