#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/Units.h"
#include "base/ports/Files.h"
#include "services/telemetry/AnalyticsEvent.h"
#include "transcription/RecordingPlaces.h"

namespace tessivox::transcription {

/// How far a run has come, for usage signals.
enum class TranscriptionStage { prepare, upload, poll, result };
/// Who asked for a run.
enum class TranscriptionSource { automatic, manual, importFile, resume, networkRetry };

/// The words that logs and signals have for them.
std::string_view stageName(TranscriptionStage stage);
std::string_view sourceName(TranscriptionSource source);

/// One attempt at a transcript, which its steps share and keep up to date.
struct TranscriptionRun {
    std::string attemptId;
    TranscriptionSource source = TranscriptionSource::manual;
    RecordingPlace place;
    std::optional<base::Duration> duration{};  ///< of the recording, if the caller knew it
    TranscriptionStage stage = TranscriptionStage::prepare;
    std::optional<std::uint64_t> uploadKB{};
    int uploadRetries = 0;
    bool resumed = false;  ///< began from a saved task; false again once it uploads anew

    const std::filesystem::path& url() const { return place.url(); }
    std::string fileName() const { return url().filename().string(); }
    /// What all signals of a run carry.
    telemetry::Parameters properties(const base::Files& files) const;
};

}  // namespace tessivox::transcription
