#include "app/RecordPreparation.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <vector>

#include "app/Console.h"
#include "audio/RecordingFiles.h"
#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using Path = std::filesystem::path;

Refusal refusal(std::string_view english, std::initializer_list<std::string_view> values) {
    return {filled(localized(english), values), ExitCode::failed};
}

/// Letters beyond ASCII stay as they are.
std::string lowered(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + ('a' - 'A') : letter; });
    return text;
}

template <typename Matches>
std::vector<audio::AudioDevice> matching(const audio::AudioDeviceSnapshot& snapshot, Matches matches) {
    std::vector<audio::AudioDevice> found;
    std::ranges::copy_if(snapshot.inputs, std::back_inserter(found), matches);
    return found;
}

/// The devices, each as `"name" (uid)`.
std::string enumerated(const std::vector<audio::AudioDevice>& devices) {
    std::string text;
    for (const auto& device : devices) {
        text += text.empty() ? "" : ", ";
        text += "\"" + printable(device.name) + "\" (" + printable(device.uid) + ")";
    }
    return text;
}

std::vector<Path> finalNames(const Path& output, bool savesSeparateTracks) {
    if (!savesSeparateTracks) return {output};
    const auto stem = output.parent_path() / output.stem();
    return {output, Path(stem).concat("_mic.m4a"), Path(stem).concat("_system.m4a")};
}

}  // namespace

std::optional<Refusal> applyOptions(const RecordOptions& options, core::AppSettings& settings) {
    if (options.quality) settings.audioQuality.set(*options.quality);
    if (options.recordsSystemAudio) settings.recordSystemAudio.set(*options.recordsSystemAudio);
    if (options.savesSeparateTracks) settings.saveSeparateTracks.set(true);
    if (const auto& microphone = options.microphone) {
        settings.recordMicrophone.set(microphone->kind != MicrophoneChoice::Kind::none);
        if (microphone->kind == MicrophoneChoice::Kind::systemDefault) settings.selectedMicrophoneID.set("");
    }
    if (settings.recordMicrophone.get() || settings.recordSystemAudio.get()) return std::nullopt;
    auto nothingLeft = refusal("Both sources are off, so there is nothing to record: give --mic or --system on.", {});
    nothingLeft.code = ExitCode::usage;
    return nothingLeft;
}

std::variant<std::string, Refusal> findMicrophone(const audio::AudioDeviceSnapshot& snapshot, const std::string& name) {
    auto found = matching(snapshot, [&](const auto& device) { return device.uid == name; });
    if (found.empty()) found = matching(snapshot, [&](const auto& device) { return device.name == name; });
    if (found.empty())
        found = matching(snapshot, [&](const auto& device) { return lowered(device.name) == lowered(name); });
    if (found.size() == 1) return found.front().uid;
    if (found.size() > 1)
        return refusal("Several microphones are called \"{0}\": give --mic the uid of one: {1}.",
                       {printable(name), enumerated(found)});
    if (snapshot.inputs.empty())
        return refusal("There is no microphone \"{0}\", nor any other: connect one, or give --mic none.",
                       {printable(name)});
    return refusal("There is no microphone \"{0}\": give --mic one of these: {1}.",
                   {printable(name), enumerated(snapshot.inputs)});
}

std::optional<Refusal> outputRefusal(base::Files& files, const Path& output, bool savesSeparateTracks) {
    for (const auto& name : finalNames(output, savesSeparateTracks)) {
        if (files.exists(name))
            return refusal("\"{0}\" already exists and is not overwritten: give --output another name.",
                           {name.string()});
    }
    return folderRefusal(files, output.parent_path());
}

std::optional<Refusal> folderRefusal(base::Files& files, const Path& folder) {
    const auto status = files.status(folder);
    if (!status || !status->isFolder)
        return refusal("There is no folder \"{0}\": make it, or choose another with --output.", {folder.string()});
    const auto probe = folder / audio::RecordingFiles::kProbe;
    try {
        files.create(probe);
        files.removeIfPossible(probe);
        return std::nullopt;
    } catch (const base::FileError& error) {
        if (error.code() == EEXIST) return std::nullopt;  // another recording tries it just now, or was killed then
        if (error.code() == ENOSPC || error.code() == EDQUOT)
            return refusal("The disk of \"{0}\" is full: free some space, or choose another folder with --output.",
                           {folder.string()});
        return refusal("Nothing can be saved in \"{0}\": make the folder writable, or choose another with --output.",
                       {folder.string()});
    }
}

}  // namespace tessivox::app
