#include "app/DevicesCommand.h"

#include <nlohmann/json.hpp>

#include "audio/LiveSource.h"
#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using nlohmann::ordered_json;

ordered_json textOrNull(const std::string& text) { return text.empty() ? ordered_json() : ordered_json(text); }

}  // namespace

std::string devicesText(const audio::AudioDeviceSnapshot& snapshot) {
    std::string text = localized(snapshot.inputs.empty() ? "No microphone is connected.\n" : "Microphones:\n");
    for (const auto& input : snapshot.inputs) {
        const auto* mark = input.uid == snapshot.defaultInputUID ? "* " : "  ";
        text += mark + printable(input.name) + "\n      " + printable(input.uid) + "\n";
    }
    if (!snapshot.defaultInputUID.empty()) text += localized("  (* is the system's default)\n");
    if (snapshot.systemAudioSourceName.empty())
        return text + localized("The computer's sound cannot be recorded: there is no output with a monitor.\n");
    return text + filled(localized("The computer's sound comes from:\n      {0}\n"),
                         {printable(snapshot.systemAudioSourceName)});
}

std::string devicesJSON(const audio::AudioDeviceSnapshot& snapshot) {
    auto inputs = ordered_json::array();
    for (const auto& input : snapshot.inputs) {
        auto& entry = inputs.emplace_back(ordered_json::object());
        entry["name"] = input.name;
        entry["uid"] = input.uid;
        entry["isDefault"] = input.uid == snapshot.defaultInputUID;
    }
    auto all = ordered_json::object();
    all["inputs"] = std::move(inputs);
    all["defaultInput"] = textOrNull(snapshot.defaultInputUID);
    all["systemAudioSource"] = textOrNull(snapshot.systemAudioSourceName);
    return all.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

base::Task<ExitCode> listDevices(DevicesOptions options, audio::AudioDevices& devices, Console& console) {
    const auto snapshot = co_await devices.snapshot();
    if (!snapshot.serverReachable) {
        console.message(audio::noSoundServer().description());
        co_return ExitCode::failed;
    }
    console.result(options.asJSON ? devicesJSON(snapshot) : devicesText(snapshot));
    co_return ExitCode::done;
}

}  // namespace tessivox::app
