#include "app/LibraryCommands.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/Completion.h"
#include "base/Text.h"
#include "library/RecordingName.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using base::paddedNumber;
using Path = std::filesystem::path;

/// Damaged files may claim any length; no recording lasts longer than this many seconds.
constexpr double kLongest = 9999 * 3600.0;

std::string durationText(double duration) {
    const auto seconds = std::llround(duration < kLongest ? std::max(duration, 0.0) : kLongest);
    return std::to_string(seconds / 3600) + ":" + paddedNumber(seconds / 60 % 60, 2) + ":" +
           paddedNumber(seconds % 60, 2);
}

std::string sizeText(std::uint64_t bytes) {
    const auto megabytes = static_cast<double>(bytes) / 1e6;
    if (megabytes < 1) return std::to_string(bytes / 1000) + " kB";
    return megabytes < 1000 ? base::fixedNumber(megabytes, 1) + " MB" : base::fixedNumber(megabytes / 1000, 2) + " GB";
}

std::string aligned(const std::string& text, std::size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string belongings(const ListedRecording& listed) {
    std::string text;
    const auto add = [&](const std::string& word) { text += (text.empty() ? "" : ", ") + word; };
    if (listed.hasTranscript) add(localized("transcript"));
    if (listed.hasSummary) add(localized("summary"));
    for (const auto& track : listed.recording.subTracks) add(localized(track.label + " track"));
    return text.empty() ? text : "  (" + text + ")";
}

/// As the system reads it: "link/.." is the folder above the one that the link names.
Path withoutLinks(const base::Files& files, const Path& file) {
    const auto whole = std::filesystem::absolute(file);
    return files.exists(whole.parent_path()) ? files.canonical(whole.parent_path()) / whole.filename() : whole;
}

Path withEndingIfMissing(const base::Files& files, const Path& file) {
    const Path ended = file.native() + std::string(library::kAudioExtension);
    return !files.exists(file) && files.exists(ended) ? ended : file;
}

}  // namespace

std::string dateText(base::WallTime time, const base::LocalTime& localTime) {
    const auto civil = localTime.civil(time);
    return paddedNumber(civil.year, 4) + "-" + paddedNumber(civil.month, 2) + "-" + paddedNumber(civil.day, 2) + " " +
           paddedNumber(civil.hour, 2) + ":" + paddedNumber(civil.minute, 2);
}

base::Error noRecording(const Path& file) {
    return {"library", 2,
            filled(localized("There is no recording \"{0}\": \"tessivox list\" shows those that there are."),
                   {printable(file.string())})};
}

std::string recordingsText(const std::vector<ListedRecording>& recordings, const base::LocalTime& localTime) {
    std::string text;
    for (const auto& listed : recordings) {
        text += dateText(listed.recording.date, localTime) + "  " +
                aligned(durationText(listed.recording.duration), 7) + "  " + aligned(sizeText(listed.size), 8);
        if (!listed.title.empty()) text += "  " + printable(listed.title);
        text += belongings(listed) + "\n    " + printable(listed.recording.url.filename().string()) + "\n";
    }
    return text;
}

std::string recordingsJSON(const std::vector<ListedRecording>& recordings) {
    auto all = nlohmann::json::array();
    for (const auto& listed : recordings) {
        auto& entry = all.emplace_back(listed.recording);
        entry.erase("id");  // of this scan alone
        entry["path"] = listed.recording.url.string();
        entry["title"] = listed.title.empty() ? nlohmann::json() : nlohmann::json(listed.title);
        entry["gist"] = listed.gist.empty() ? nlohmann::json() : nlohmann::json(listed.gist);
        entry["size"] = listed.size;
        entry["hasTranscript"] = listed.hasTranscript;
        entry["hasSummary"] = listed.hasSummary;
    }
    return library::jsonText(all) + "\n";
}

Path meantRecording(const base::Files& files, const Path& recordingsFolder, const Path& argument) {
    const auto here = withoutLinks(files, argument);
    if (files.exists(here)) return here;
    return withEndingIfMissing(files, argument.has_parent_path() ? here : recordingsFolder / argument);
}

base::Task<std::vector<library::Recording>> LibraryCommands::scanned() {
    auto& isLoading = parts_.storage.isLoading;
    const base::Completion<bool> done;
    const auto watch = isLoading.observe([done](bool loads) {
        if (!loads) done.succeed(true);
    });
    co_await done;
    co_return parts_.storage.recordings.get();
}

ListedRecording LibraryCommands::details(library::Recording recording) {
    ListedRecording listed;
    listed.recording = std::move(recording);
    const auto& url = listed.recording.url;
    const auto title = parts_.storage.readMetadata(url, library::kTitleAttribute);
    listed.title = title ? *title : library::titleFromBaseName(listed.recording.name).value_or("");
    listed.gist = parts_.storage.readMetadata(url, library::kGistAttribute).value_or("");
    if (const auto status = parts_.files.status(url)) listed.size = status->size;
    listed.hasTranscript = parts_.files.exists(library::sibling(url, library::kSidecarExtensions[0]));
    listed.hasSummary = parts_.files.exists(library::sibling(url, library::kSidecarExtensions[1]));
    return listed;
}

base::Task<ExitCode> LibraryCommands::list(bool asJSON) {
    // The scan takes a folder that cannot be read for an empty one; whoever asked for a list wants to know.
    if (parts_.files.exists(parts_.folder)) parts_.files.list(parts_.folder);
    auto recordings = co_await scanned();
    std::vector<ListedRecording> listed;
    for (auto& recording : recordings) listed.push_back(details(std::move(recording)));
    if (listed.empty() && !asJSON)
        parts_.console.message(
            filled(localized("There are no recordings in \"{0}\" yet."), {printable(parts_.folder.string())}));
    parts_.console.result(asJSON ? recordingsJSON(listed) : recordingsText(listed, parts_.localTime));
    co_return ExitCode::done;
}

base::Task<library::Recording> LibraryCommands::found(Path file) {
    const auto recordings = co_await scanned();
    for (const auto& recording : recordings) {
        if (recording.url == file) co_return recording;
        for (const auto& track : recording.subTracks) {
            if (track.url != file) continue;
            const auto main = printable(recording.url.filename().string());
            throw base::Error("library", 3,
                              filled(localized("\"{0}\" is a track of \"{1}\": name that one, and both go together."),
                                     {printable(file.filename().string()), main}));
        }
    }
    throw noRecording(file);
}

base::Task<library::Recording> LibraryCommands::foundAtRest(Path file) {
    auto finding = found(std::move(file));
    auto recording = co_await finding;
    if (parts_.isBeingTranscribed(recording.url))
        throw base::Error("library", 4,
                          filled(localized("\"{0}\" is being transcribed: wait for the transcript, then try again."),
                                 {printable(recording.url.filename().string())}));
    co_return recording;
}

base::Task<ExitCode> LibraryCommands::rename(Path file, std::string name) {
    auto finding = foundAtRest(std::move(file));
    auto recording = co_await finding;
    // Who types the ending of the file means the name before it.
    if (name.ends_with(library::kAudioExtension)) name.resize(name.size() - library::kAudioExtension.size());
    parts_.storage.renameRecording(std::move(recording), name);
    co_return ExitCode::done;
}

base::Task<ExitCode> LibraryCommands::trash(Path file) {
    auto finding = foundAtRest(std::move(file));
    auto recording = co_await finding;
    parts_.storage.deleteRecording(std::move(recording));
    co_return ExitCode::done;
}

}  // namespace tessivox::app
