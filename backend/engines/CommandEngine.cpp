#include "backend/engines/CommandEngine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "backend/engines/CaptionFormats.h"
#include "backend/engines/EngineError.h"
#include "backend/engines/PrivateFolder.h"
#include "backend/engines/ProgramRun.h"
#include "backend/engines/Utf8.h"
#include "backend/engines/WavFile.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using Path = std::filesystem::path;

constexpr std::string_view kSound = "{wav}";
constexpr std::string_view kOutput = "{out}";

bool isAskedFor(const std::vector<std::string>& arguments, std::string_view place) {
    return std::ranges::any_of(arguments, [&](const auto& argument) { return argument.find(place) != argument.npos; });
}

/// In one pass, so that a path which itself holds such words stays as it is.
std::string filledIn(std::string_view argument, const std::string& sound, const std::string& output) {
    std::string result;
    while (!argument.empty()) {
        const bool isSound = argument.starts_with(kSound);
        if (isSound || argument.starts_with(kOutput)) {
            result += isSound ? sound : output;
            argument.remove_prefix(isSound ? kSound.size() : kOutput.size());
        } else {
            result += argument.front();
            argument.remove_prefix(1);
        }
    }
    return result;
}

std::string readOutput(const Path& path) {
    const posix::Descriptor file(posix::retry([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) throw posix::fileError(errno, "read", path);
    if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kMostCaptionBytes)) {
        throw EngineError("The speech program's output is no file of at most 64 MiB. Check the command's options.");
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t filled = 0;
    while (filled < text.size()) {
        const auto got = posix::retry([&] { return ::read(file.get(), &text[filled], text.size() - filled); });
        if (got < 0) throw posix::fileError(errno, "read", path);
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    text.resize(filled);
    return text;
}

/// The best of the files whose names begin as asked: such as tell times come first.
std::optional<Path> outputFile(const Path& folder, std::string_view prefix) {
    constexpr std::array<std::string_view, 4> kKinds = {".json", ".srt", ".vtt", ".txt"};
    const auto rankOf = [&](const Path& path) { return std::ranges::find(kKinds, path.extension().string()); };
    std::optional<Path> best;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.path().filename().string().starts_with(prefix) || !entry.is_regular_file()) continue;
        const auto& path = entry.path();
        if (!best || std::pair(rankOf(path), path) < std::pair(rankOf(*best), *best)) best = path;
    }
    return best;
}

}  // namespace

CommandEngine::CommandEngine(CommandSettings settings) : settings_(std::move(settings)) {
    if (settings_.arguments.empty() || settings_.arguments.front().empty()) {
        throw EngineError("Say which program turns speech into text, for example: whisper-cli -m MODEL -f {wav}");
    }
    if (!isAskedFor(settings_.arguments, kSound)) {
        throw EngineError("Put {wav} among the speech program's arguments, in the place of the sound file's path.");
    }
}

std::string CommandEngine::name() const { return briefLine(Path(settings_.arguments.front()).filename().string(), 80); }

std::vector<Utterance> CommandEngine::transcribe(const Sound& sound, const Progress& progress) {
    if (sound.samples.empty()) return {};
    const PrivateFolder folder(settings_.folder);
    const auto wav = folder.path() / "sound.wav";
    writeWavFile(wav, sound.samples);
    std::vector<std::string> arguments;
    for (const auto& argument : settings_.arguments) {
        arguments.push_back(filledIn(argument, wav.string(), (folder.path() / "out").string()));
    }
    const auto extra = std::chrono::duration<double>(settings_.timePerSecond * sound.seconds());
    ProgramLimits limits;
    limits.time = settings_.leastTime + std::chrono::duration_cast<std::chrono::milliseconds>(extra);
    auto text = runProgram(arguments, folder.path(), limits);
    if (isAskedFor(settings_.arguments, kOutput)) {
        const auto file = outputFile(folder.path(), "out");
        if (!file) {
            throw EngineError("The speech program \"" + name() +
                              "\" made no file whose name begins with {out}. Check the command's options.");
        }
        text = readOutput(*file);
    }
    if (progress) progress(1);
    return parseCaptions(text, sound.seconds());
}

}  // namespace tessivox::backend
