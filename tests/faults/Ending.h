#pragma once

#include <optional>
#include <string>

#include "transcription/TranscriptionState.h"

namespace tessivox::transcription {

enum class Task { gone, kept };  ///< among the pending ones
enum class Transcript { absent, there };

/// What a run leaves.
struct Ending {
    std::string failure;  ///< its code in logs; empty if there is none
    TranscriptionStatus status = TranscriptionStatus::none;
    std::optional<TranscriptionFailureKind> kind;
    std::string hint;
    Task task = Task::gone;
    int uploads = 0;  ///< begun
    Transcript transcript = Transcript::absent;

    /// What a test prints.
    std::string text() const {
        static constexpr const char* kStatus[] = {"none", "uploading", "processing", "completed", "failed"};
        static constexpr const char* kKind[] = {"quota", "error", "no speech"};
        return std::string(kStatus[static_cast<int>(status)]) + ", " +
               (kind ? kKind[static_cast<int>(*kind)] : "no failure") + ", \"" + hint + "\", task " +
               (task == Task::kept ? "kept" : "gone") + ", " + std::to_string(uploads) + " uploads, transcript " +
               (transcript == Transcript::there ? "there" : "absent") + ", " + (failure.empty() ? "ok" : failure);
    }
};

inline Ending finishes(int uploads = 1) {
    return {"", TranscriptionStatus::completed, std::nullopt, "", Task::gone, uploads, Transcript::there};
}
inline Ending findsNoSpeech(int uploads = 1) {
    return {"no_speech", TranscriptionStatus::completed, TranscriptionFailureKind::noSpeech, "", Task::gone, uploads};
}
inline Ending isOverQuota(int uploads = 1) {
    return {"limit_exceeded", TranscriptionStatus::failed, TranscriptionFailureKind::quota, "", Task::gone, uploads};
}
inline Ending fails(const std::string& failure, const std::string& hint, Task task, int uploads = 1) {
    return {failure, TranscriptionStatus::failed, TranscriptionFailureKind::error, hint, task, uploads};
}

inline constexpr const char* kNoHint = "";
inline constexpr const char* kNoConnection = "No connection";
inline constexpr const char* kUnavailable = "Server unavailable";
inline constexpr const char* kTimedOut = "Timed out";

}  // namespace tessivox::transcription
