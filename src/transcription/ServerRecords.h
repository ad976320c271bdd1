#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tessivox::transcription {

/// The quota as the server counts it.
struct UsageInfo {
    std::int64_t used = 0;  ///< transcriptions of this period
    std::int64_t limit = 0;
    std::int64_t remaining = 0;
    /// The server's own verdict: false means that a new upload will be refused.
    bool canTranscribe = false;
    std::optional<std::string> resetsAt;  ///< the server's wording; names the period

    bool operator==(const UsageInfo&) const = default;
};

/// What the server says of a task.
struct TaskStatusResponse {
    std::string taskId;
    std::string status;  ///< "pending", "processing", "completed" or "failed", if the server keeps its word
    std::optional<std::string> text;
    std::optional<std::int64_t> durationSeconds;
    std::optional<std::string> provider;
    std::optional<std::string> languageCode;
    std::optional<double> confidence;
    std::optional<double> languageConfidence;
    std::optional<UsageInfo> usage;
    std::optional<std::string> error;  ///< for people, if failed
    std::optional<std::string> title;
    std::optional<std::string> gist;
};

/// A completed task with everything that belongs to it.
struct TranscribeResponse {
    std::string text;
    std::int64_t durationSeconds = 0;
    std::string provider;
    UsageInfo usage;
    std::optional<std::string> title;
    std::optional<std::string> gist;
};

struct SummarizeResponse {
    std::string summary;
    UsageInfo usage;
};

}  // namespace tessivox::transcription
