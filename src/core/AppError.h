#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tessivox::core {

/// What went wrong, as the user is shown it.
class AppError {
public:
    struct RecordingFailed {
        std::string text;
        bool operator==(const RecordingFailed&) const = default;
    };
    struct StorageError {
        std::string text;
        bool operator==(const StorageError&) const = default;
    };
    struct TranscriptionLimitReached {
        std::optional<std::string> resetsAt;  ///< the server's own wording; not part of the description
        bool operator==(const TranscriptionLimitReached&) const = default;
    };
    struct MicrophonePermissionDenied {
        bool operator==(const MicrophonePermissionDenied&) const = default;
    };
    struct ScreenRecordingPermissionDenied {
        bool operator==(const ScreenRecordingPermissionDenied&) const = default;
    };
    struct AudioDeviceNotFound {
        bool operator==(const AudioDeviceNotFound&) const = default;
    };
    using Case = std::variant<RecordingFailed, StorageError, TranscriptionLimitReached, MicrophonePermissionDenied,
                              ScreenRecordingPermissionDenied, AudioDeviceNotFound>;

    explicit AppError(Case which) : which_(std::move(which)) {}

    const Case& which() const noexcept { return which_; }
    /// A localized sentence.
    std::string description() const;

    bool operator==(const AppError&) const = default;

private:
    Case which_;
};

}  // namespace tessivox::core
