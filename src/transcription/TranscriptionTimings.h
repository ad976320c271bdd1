#pragma once

#include <chrono>
#include <vector>

#include "base/Units.h"

namespace tessivox::transcription {

using namespace std::chrono_literals;

/// The pauses and limits of a transcription.
struct TranscriptionTimings {
    base::Duration pollInterval = 5s;
    base::Duration longestBackoff = 30s;    ///< between polls that fail
    base::Duration pollOutageLimit = 600s;  ///< how long polls may fail without a break
    base::Duration pollDeadline = 45min;    ///< how long a task may stay unfinished
    std::vector<base::Duration> uploadRetryDelays{10s, 30s};
    base::Duration networkRetryDelay = 5s;   ///< after the network came back
    base::Duration networkFailureAge = 24h;  ///< an older failure is not retried
    /// How often saved tasks are looked at that a process which may have died was waiting for.
    base::Duration pendingCheckInterval = 1min;
};

}  // namespace tessivox::transcription
