#include "transcription/TranscriptionFailure.h"

namespace tessivox::transcription {
namespace {

void addPlatformError(telemetry::Parameters& parameters, const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const base::Error& known) {
        parameters.emplace("error_domain", known.domain());
        parameters.emplace("error_code", std::to_string(known.code()));
    } catch (...) {
        // It has neither.
    }
}

void addErrorCode(telemetry::Parameters& parameters, const TranscriptionError& error) {
    if (const auto* http = error.as<TranscriptionError::ServerHTTPError>()) {
        parameters.emplace("error_code", std::to_string(http->status));
    } else if (const auto* network = error.as<TranscriptionError::NetworkError>()) {
        parameters.emplace("error_code", std::to_string(network->code));
    }
}

}  // namespace

std::optional<TranscriptionError> asTranscriptionError(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const TranscriptionError& known) {
        return known;
    } catch (...) {
        return std::nullopt;
    }
}

std::string failureReason(const std::exception_ptr& error) {
    const auto known = asTranscriptionError(error);
    if (!known) return "unknown";
    return known->as<TranscriptionError::LimitExceeded>() ? "quota_exceeded" : known->telemetryCode();
}

void reportTranscriptionFailure(telemetry::Analytics& analytics, const base::Files& files,
                                const std::exception_ptr& error, const TranscriptionRun& run,
                                const std::string& appVersion) {
    const auto known = asTranscriptionError(error);
    if (known && (known->as<TranscriptionError::LimitExceeded>() || known->as<TranscriptionError::NoSpeech>())) return;
    auto parameters = run.properties(files);
    parameters.emplace("stage", stageName(run.stage));
    if (run.uploadRetries >= 1) parameters.emplace("upload_retries", std::to_string(run.uploadRetries));
    parameters.emplace("reason", failureReason(error));
    if (known) {
        addErrorCode(parameters, *known);
    } else {
        addPlatformError(parameters, error);
    }
    if (!appVersion.empty()) parameters.emplace("app_version", appVersion);
    analytics.track(telemetry::AnalyticsEvent::transcriptionFailed, parameters);
}

}  // namespace tessivox::transcription
