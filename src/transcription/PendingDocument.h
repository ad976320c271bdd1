#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "base/Units.h"

namespace tessivox::transcription {

/// A server's task that a recording waits for.
struct PendingTask {
    std::filesystem::path audioPath;
    std::string taskId;
    base::WallTime submittedAt;

    bool operator==(const PendingTask&) const = default;
};

/// A recording has one task at most.
using PendingTasks = std::map<std::filesystem::path, PendingTask>;

/// The text of pending_transcriptions.json: an array of `{"audioPath", "taskId", "submittedAt"}`, the last in seconds
/// since 2001-01-01 00:00 UTC. A path that is not UTF-8 is written as base::percentEncoded() gives it, in an object
/// that says so by `"audioPathIsPercentEncoded": true`; every other path stands as it is.
struct PendingDocument {
    static constexpr std::size_t kMaxSize = std::size_t{4} << 20;  ///< bytes

    /// Absent if any of it is not as it should be. Keys that it does not know are ignored.
    static std::optional<PendingTasks> parsed(std::string_view text);
    static std::string text(const PendingTasks& tasks);
};

}  // namespace tessivox::transcription
