#include "app/ShowCommand.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "app/LibraryCommands.h"
#include "base/Error.h"
#include "base/IsoTime.h"
#include "base/Text.h"
#include "library/RecordingMetadata.h"
#include "library/RecordingName.h"
#include "reader/Captions.h"
#include "reader/Documents.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using Path = std::filesystem::path;

constexpr std::size_t kLongestText = std::size_t{256} << 20;  // bytes
constexpr std::string_view kTranscriptEnding = library::kSidecarExtensions[0];
constexpr std::string_view kSummaryEnding = library::kSidecarExtensions[1];

/// The files that an argument means, there or not.
struct MeantFiles {
    Path text;
    Path recording;
    bool isSummary = false;
};

MeantFiles meantFiles(const base::Files& files, const Path& recordingsFolder, const ShowOptions& options) {
    const auto meant = meantRecording(files, recordingsFolder, options.file);
    const auto& name = meant.native();
    const bool namesSummary = name.ends_with(kSummaryEnding);
    for (const auto ending : {kSummaryEnding, kTranscriptEnding, library::kAudioExtension}) {
        if (!name.ends_with(ending)) continue;
        const auto base = name.substr(0, name.size() - ending.size());
        const bool isSummary = options.isSummary || namesSummary;
        return {base + std::string(isSummary ? kSummaryEnding : kTranscriptEnding),
                base + std::string(library::kAudioExtension), isSummary};
    }
    // Any other ending, such as .M4A, and none at all.
    const auto text = library::sibling(meant, options.isSummary ? kSummaryEnding : kTranscriptEnding);
    return {text, meant, options.isSummary};
}

/// Why there is nothing to show, and how to get it.
base::Error nothingToShow(const base::Files& files, const MeantFiles& meant) {
    if (!files.exists(meant.recording)) return noRecording(meant.recording);
    const auto* sentence = meant.isSummary ? "\"{0}\" has no summary yet: \"tessivox summarize {1}\" makes one."
                                           : "\"{0}\" has no transcript yet: \"tessivox transcribe {1}\" makes one.";
    const auto name = printable(meant.recording.filename().string());
    return {"reader", 1, filled(localized(sentence), {name, shellWord(printable(meant.recording.string()))})};
}

reader::DocumentInfo infoOf(base::Files& files, const base::LocalTime& localTime, const MeantFiles& meant) {
    reader::DocumentInfo info;
    info.path = meant.text.string();
    info.title = library::titleFromBaseName(meant.recording.stem().string()).value_or("");
    const auto status = files.status(meant.recording);
    if (!status) return info;
    library::RecordingMetadata metadata(files);
    info.recording = meant.recording.string();
    info.title = metadata.read(meant.recording, library::kTitleAttribute).value_or(info.title);
    info.gist = metadata.read(meant.recording, library::kGistAttribute).value_or("");
    info.date = base::IsoTime(status->birth).view();
    info.localDate = dateText(status->birth, localTime);
    return info;
}

std::string transcriptIn(ShowFormat format, std::string text, const reader::DocumentInfo& info) {
    const auto transcript = reader::parseTranscript(std::move(text));
    switch (format) {
        case ShowFormat::text:
            return reader::transcriptPlain(transcript);
        case ShowFormat::markdown:
            return reader::transcriptMarkdown(transcript, info);
        case ShowFormat::srt:
            return reader::srtText(transcript.entries());
        case ShowFormat::vtt:
            return reader::vttText(transcript.entries());
        case ShowFormat::json:
            return reader::transcriptJSON(transcript, info);
    }
    return {};
}

std::string summaryIn(ShowFormat format, const std::string& text, const reader::DocumentInfo& info) {
    switch (format) {
        case ShowFormat::text:
            return reader::summaryPlain(text);
        case ShowFormat::markdown:
            return reader::summaryMarkdown(reader::parseBlocks(text), info);
        case ShowFormat::json:
            return reader::summaryJSON(reader::parseBlocks(text), info);
        case ShowFormat::srt:
        case ShowFormat::vtt:
            break;
    }
    throw base::Error("reader", 2, summaryFormatProblem());
}

std::string printableLines(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        shown += printable(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return shown;
}

}  // namespace

base::Task<ExitCode> showCommand(base::Files& files, const base::LocalTime& localTime, Path recordingsFolder,
                                 ShowOptions options, Console& console) {
    const auto meant = meantFiles(files, recordingsFolder, options);
    if (!files.exists(meant.text)) throw nothingToShow(files, meant);
    auto text = files.readAll(meant.text, kLongestText);
    const auto info = infoOf(files, localTime, meant);
    const auto shown =
        meant.isSummary ? summaryIn(options.format, text, info) : transcriptIn(options.format, std::move(text), info);
    // JSON holds its own escapes, and what it holds is for programs.
    console.result(options.format == ShowFormat::json ? shown : printableLines(shown));
    co_return ExitCode::done;
}

}  // namespace tessivox::app
