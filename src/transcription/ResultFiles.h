#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/ports/Files.h"
#include "library/RecordingStorage.h"
#include "transcription/TranscriptionState.h"

namespace tessivox::transcription {

/// The transcript and the summary beside a recording, the title and gist in its attributes, and what of all that has
/// been looked up, so that a long list may ask at every redraw. Main thread.
class ResultFiles {
public:
    static constexpr std::size_t kLongestText = std::size_t{64} << 20;  ///< bytes of a transcript or summary

    ResultFiles(base::Files& files, library::RecordingStorage& storage) : files_(files), storage_(storage) {}

    // Both write the text as it is over an older one, atomically, and the text is on the disk then. They throw
    // base::FileError, also if something that is no file has the name.
    void saveTranscript(const std::filesystem::path& url, std::string_view text);
    void saveSummary(const std::filesystem::path& url, std::string_view text);

    bool hasTranscript(const std::filesystem::path& url);
    bool hasSummary(const std::filesystem::path& url);
    /// UTF-8. Throws base::FileError.
    std::string readTranscript(const std::filesystem::path& url);

    /// Stores what the server derived, or removes the gist if there is none.
    void storeTitle(const std::filesystem::path& url, const std::string& title, const std::optional<std::string>& gist);
    std::optional<std::string> storedTitle(const std::filesystem::path& url);
    /// As stored, or else out of the summary.
    std::optional<std::string> meetingTitle(const std::filesystem::path& url);
    std::optional<std::string> gist(const std::filesystem::path& url);

    /// Gives a recording that still has its default name, and its siblings, a name with the title in it. Absent if the
    /// name stays. Nothing is ever replaced: a sibling whose new name is taken keeps the old one, and if the
    /// recording's own is taken nothing moves.
    std::optional<std::filesystem::path> renameFromTitle(const std::filesystem::path& url);

    void resetCaches();
    // What is known of one recording.
    void moved(const std::filesystem::path& from, const std::filesystem::path& to);
    void forget(const std::filesystem::path& url);

private:
    base::Files& files_;
    library::RecordingStorage& storage_;
    PerRecording<bool> transcriptExistsCache_, summaryExistsCache_;
    PerRecording<std::string> meetingTitleCache_;
    PerRecording<std::string> gistCache_;  ///< empty: there is none

    bool exists(PerRecording<bool>& cache, const std::filesystem::path& url, std::string_view extension);
    std::optional<std::string> readSummary(const std::filesystem::path& url);
    void write(const std::filesystem::path& target, std::string_view text);
    bool moveAll(const std::filesystem::path& from, const std::filesystem::path& to);
    bool moveIfFree(const std::filesystem::path& from, const std::filesystem::path& to);
    void syncIfPossible(const std::filesystem::path& folder);
};

}  // namespace tessivox::transcription
