#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <string>

#include "base/Task.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "transcription/RecordingPlaces.h"
#include "transcription/ResultFiles.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionState.h"

namespace tessivox::transcription {

/// Makes the summary of a recording that has a transcript. Main thread.
class Summaries {
public:
    struct Parts {
        ResultFiles& results;
        ServerClient& client;
        TranscriptionState& state;
        RecordingPlaces& places;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        /// Names the recording after the title that is known now, if there is one.
        std::function<void(std::filesystem::path url)> renameFromTitle;
    };
    explicit Summaries(Parts parts) : parts_(std::move(parts)) {}

    /// Throws TranscriptionError or base::FileError.
    base::Task<void> summarize(std::filesystem::path url);
    /// What follows a transcription. Whatever fails, the transcript stands.
    base::Task<void> summarizeAutomatically(std::filesystem::path url);
    /// What the user asked for: gives the recording's path, which the summary's title may have changed. Throws what
    /// summarize() throws.
    base::Task<std::filesystem::path> summarizeManually(std::filesystem::path url);

private:
    Parts parts_;

    base::Task<void> makeSummary(RecordingPlace place);
    void reportGenerated(const std::string& mode);
    void reportFailed(const std::string& mode, const std::exception_ptr& error);
};

}  // namespace tessivox::transcription
