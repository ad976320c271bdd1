#include "transcription/TranscriptionRun.h"

#include "services/telemetry/ParameterText.h"

namespace tessivox::transcription {

std::string_view stageName(TranscriptionStage stage) {
    switch (stage) {
        case TranscriptionStage::prepare:
            return "prepare";
        case TranscriptionStage::upload:
            return "upload";
        case TranscriptionStage::poll:
            return "poll";
        case TranscriptionStage::result:
            return "result";
    }
    return "";
}

std::string_view sourceName(TranscriptionSource source) {
    switch (source) {
        case TranscriptionSource::automatic:
            return "auto";
        case TranscriptionSource::manual:
            return "manual";
        case TranscriptionSource::importFile:
            return "import";
        case TranscriptionSource::resume:
            return "resume";
        case TranscriptionSource::networkRetry:
            return "network_retry";
    }
    return "";
}

telemetry::Parameters TranscriptionRun::properties(const base::Files& files) const {
    telemetry::Parameters all{{"attempt_id", attemptId},
                              {"source", std::string(sourceName(source))},
                              {"resumed", telemetry::truthText(resumed)}};
    if (duration) all.emplace("duration_sec", telemetry::wholeSecondsText(*duration));
    if (const auto status = files.status(url())) all.emplace("file_size_kb", std::to_string(status->size / 1024));
    if (uploadKB) all.emplace("upload_kb", std::to_string(*uploadKB));
    return all;
}

}  // namespace tessivox::transcription
