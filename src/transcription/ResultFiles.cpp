#include "transcription/ResultFiles.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <utility>

#include "audio/RecordingFiles.h"
#include "base/Log.h"
#include "base/ShortenedText.h"
#include "base/Text.h"
#include "library/RecordingName.h"
#include "transcription/ResultTexts.h"

namespace tessivox::transcription {
namespace {

using Path = std::filesystem::path;
using library::sibling;

constexpr std::string_view kTranscriptExtension = ".txt";
constexpr std::string_view kSummaryExtension = ".summary.txt";
constexpr std::size_t kLongestGist = 160;  // characters

/// Whether it is "2026-01-15_10-30-00".
bool isDefaultName(std::string_view stem) {
    constexpr std::string_view kPattern = "0000-00-00_00-00-00";
    const auto matches = [](char pattern, char letter) {
        return pattern == '0' ? letter >= '0' && letter <= '9' : letter == pattern;
    };
    return std::ranges::equal(kPattern, stem, matches);
}

/// The hidden file that a text is written to first.
Path temporaryFor(const Path& target) {
    constexpr std::string_view kSuffix = ".tessivox-new";
    const auto name = target.filename().native();
    return target.parent_path() /
           ("." + std::string(base::shortened(name, 254 - kSuffix.size())) + std::string(kSuffix));
}

}  // namespace

// Texts

void ResultFiles::saveTranscript(const Path& url, std::string_view text) {
    write(sibling(url, kTranscriptExtension), text);
    transcriptExistsCache_.insert_or_assign(url, true);
}

void ResultFiles::saveSummary(const Path& url, std::string_view text) {
    write(sibling(url, kSummaryExtension), text);
    summaryExistsCache_.insert_or_assign(url, true);
    meetingTitleCache_.erase(url);
    if (auto title = extractTitle(text)) meetingTitleCache_.emplace(url, std::move(*title));
}

void ResultFiles::write(const Path& target, std::string_view text) {
    const auto present = files_.linkStatus(target);
    if (present && !present->isRegular) {
        throw base::FileError(
            EEXIST, base::filled(base::localized("\"{0}\" is no file, so nothing can be saved under that name. Move it "
                                                 "somewhere else and try again."),
                                 {target.string()}));
    }
    const auto temporary = temporaryFor(target);
    files_.removeIfPossible(temporary);  // left by a crash
    try {
        const auto file = files_.create(temporary);
        file->append(std::as_bytes(std::span(text)));
        file->sync();
        files_.replace(temporary, target);
    } catch (const base::FileError&) {
        files_.removeIfPossible(temporary);
        throw;
    }
    // The text stands. If this fails, its name may still be lost with the power, of which nobody can do anything now.
    syncIfPossible(target.parent_path());
}

bool ResultFiles::hasTranscript(const Path& url) { return exists(transcriptExistsCache_, url, kTranscriptExtension); }

bool ResultFiles::hasSummary(const Path& url) { return exists(summaryExistsCache_, url, kSummaryExtension); }

bool ResultFiles::exists(PerRecording<bool>& cache, const Path& url, std::string_view extension) {
    const auto known = cache.find(url);
    if (known != cache.end()) return known->second;
    return cache.emplace(url, files_.exists(sibling(url, extension))).first->second;
}

std::string ResultFiles::readTranscript(const Path& url) {
    const auto file = sibling(url, kTranscriptExtension);
    auto text = files_.readAll(file, kLongestText);
    if (base::isUTF8(text)) return text;
    throw base::FileError(EILSEQ,
                          base::filled(base::localized("\"{0}\" is no UTF-8 text. Save it as UTF-8 in an editor, "
                                                       "or transcribe the recording again."),
                                       {file.string()}));
}

std::optional<std::string> ResultFiles::readSummary(const Path& url) {
    try {
        auto text = files_.readAll(sibling(url, kSummaryExtension), kLongestText);
        return base::isUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
    } catch (const base::FileError&) {
        return std::nullopt;
    }
}

// Title and gist

void ResultFiles::storeTitle(const Path& url, const std::string& title, const std::optional<std::string>& gist) {
    storage_.writeMetadata(url, title, library::kTitleAttribute);
    storage_.writeMetadata(url, gist, library::kGistAttribute);
    meetingTitleCache_.insert_or_assign(url, title);
    gistCache_.erase(url);
    if (gist) gistCache_.emplace(url, *gist);
}

std::optional<std::string> ResultFiles::storedTitle(const Path& url) {
    return storage_.readMetadata(url, library::kTitleAttribute);
}

std::optional<std::string> ResultFiles::meetingTitle(const Path& url) {
    const auto known = meetingTitleCache_.find(url);
    if (known != meetingTitleCache_.end()) return known->second;
    auto title = storedTitle(url);
    if (!title && hasSummary(url)) {
        if (const auto summary = readSummary(url)) title = extractTitle(*summary);
    }
    if (title) meetingTitleCache_.emplace(url, *title);
    return title;
}

std::optional<std::string> ResultFiles::gist(const Path& url) {
    auto known = gistCache_.find(url);
    if (known == gistCache_.end()) {
        auto gist = storage_.readMetadata(url, library::kGistAttribute);
        if (!gist && hasSummary(url)) {
            if (const auto summary = readSummary(url)) gist = extractGist(*summary, kLongestGist);
        }
        known = gistCache_.emplace(url, gist.value_or("")).first;
    }
    return known->second.empty() ? std::nullopt : std::optional(known->second);
}

// Rename

std::optional<Path> ResultFiles::renameFromTitle(const Path& url) {
    const auto title = meetingTitle(url);
    const auto stem = url.stem().native();
    if (!title || !isDefaultName(stem)) return std::nullopt;
    const auto addition = slug(*title, audio::RecordingFiles::kLongestBase - stem.size() - 1);
    if (addition.empty()) return std::nullopt;
    const auto newStem = stem + "_" + addition;
    const auto renamed = url.parent_path() / (newStem + std::string(library::kAudioExtension));
    try {
        if (!moveAll(url, renamed)) return std::nullopt;
    } catch (const base::FileError&) {
        return std::nullopt;  // logged where it happened
    }
    syncIfPossible(url.parent_path());
    moved(url, renamed);
    base::log("[Rename] Renamed files to: " + newStem);
    return renamed;
}

/// True if the recording has its new name, and each sibling that could be moved has its own.
bool ResultFiles::moveAll(const Path& from, const Path& to) {
    using library::kAudioExtension;
    if (!moveIfFree(from, to)) return false;
    for (const auto extension : library::kSidecarExtensions)
        moveIfFree(sibling(from, extension), sibling(to, extension));
    for (const auto suffix : {library::kMicrophoneSuffix, library::kSystemSuffix}) {
        const auto track = std::string(suffix) + std::string(kAudioExtension);
        try {
            moveIfFree(sibling(from, track), sibling(to, track));
        } catch (const base::FileError&) {
            // The track keeps its old name.
        }
    }
    return true;
}

/// False if there is nothing to move, or the new name is taken.
bool ResultFiles::moveIfFree(const Path& from, const Path& to) {
    try {
        files_.move(from, to);
        return true;
    } catch (const base::FileError& error) {
        if (error.code() == EEXIST || !files_.linkStatus(from)) return false;
        base::log("[Rename] Failed to rename " + from.filename().string() + ": " + error.description());
        throw;
    }
}

void ResultFiles::syncIfPossible(const Path& folder) {
    try {
        files_.syncFolder(folder);
    } catch (const base::FileError& error) {
        base::log("[Transcription] " + error.description());
    }
}

// Caches

void ResultFiles::resetCaches() {
    transcriptExistsCache_.clear();
    summaryExistsCache_.clear();
    meetingTitleCache_.clear();
    gistCache_.clear();
}

void ResultFiles::moved(const Path& from, const Path& to) {
    moveEntry(transcriptExistsCache_, from, to);
    moveEntry(summaryExistsCache_, from, to);
    moveEntry(meetingTitleCache_, from, to);
    moveEntry(gistCache_, from, to);
}

void ResultFiles::forget(const Path& url) {
    transcriptExistsCache_.erase(url);
    summaryExistsCache_.erase(url);
    meetingTitleCache_.erase(url);
    gistCache_.erase(url);
}

}  // namespace tessivox::transcription
