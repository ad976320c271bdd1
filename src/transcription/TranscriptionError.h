#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "base/Error.h"

namespace tessivox::transcription {

/// Everything that can go wrong between a recording and its transcript. The description is the user's sentence.
class TranscriptionError : public base::Error {
public:
    struct LimitExceeded {
        std::int64_t used = 0;
        std::int64_t limit = 0;
    };
    struct TranscriptionFailed {
        std::string message;
    };
    struct NetworkError {
        int code = 0;  ///< of base::HttpErrorCode
        std::string message;
    };
    struct ServerError {
        std::string message;
    };
    struct ServerHTTPError {
        int status = 0;
    };
    struct NoSpeech {};
    struct TimedOut {};
    struct TaskLost {};
    struct AlreadyInProgress {};
    using Case = std::variant<LimitExceeded, TranscriptionFailed, NetworkError, ServerError, ServerHTTPError, NoSpeech,
                              TimedOut, TaskLost, AlreadyInProgress>;

    TranscriptionError(Case which);  // NOLINT: throw TranscriptionError(TaskLost{}) and the like

    const Case& which() const noexcept { return which_; }
    template <typename T>
    const T* as() const noexcept {
        return std::get_if<T>(&which_);
    }
    /// For logs and signals, such as "server_5xx".
    std::string telemetryCode() const;
    /// Whether the same request may well succeed a little later.
    bool isTransient() const;
    /// The few words under a failed row, localized.
    std::optional<std::string> failureHint() const;

private:
    Case which_;
};

}  // namespace tessivox::transcription
