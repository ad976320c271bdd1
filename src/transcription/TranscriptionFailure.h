#pragma once

#include <exception>
#include <optional>
#include <string>

#include "services/telemetry/Analytics.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionRun.h"

namespace tessivox::transcription {

/// The error, if it is one of ours.
std::optional<TranscriptionError> asTranscriptionError(const std::exception_ptr& error);

/// Why it failed, in the words of the usage signals, which say "quota_exceeded" where logs say "limit_exceeded".
/// "unknown" for all errors that are not ours.
std::string failureReason(const std::exception_ptr& error);

/// Sends `transcription_failed`, unless the run ended in a way that has a signal of its own. An empty version is left
/// out.
void reportTranscriptionFailure(telemetry::Analytics& analytics, const base::Files& files,
                                const std::exception_ptr& error, const TranscriptionRun& run,
                                const std::string& appVersion);

}  // namespace tessivox::transcription
