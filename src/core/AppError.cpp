#include "core/AppError.h"

#include "base/Text.h"

namespace tessivox::core {
namespace {

using base::filled;
using base::localized;

struct Description {
    std::string operator()(const AppError::RecordingFailed& error) const {
        return filled(localized("Recording failed: {0}"), {error.text});
    }
    std::string operator()(const AppError::StorageError& error) const {
        return filled(localized("Storage error: {0}"), {error.text});
    }
    std::string operator()(const AppError::TranscriptionLimitReached&) const {
        return localized("Transcription limit reached.");
    }
    std::string operator()(const AppError::MicrophonePermissionDenied&) const {
        return localized("Microphone permission denied. Please enable in System Settings.");
    }
    std::string operator()(const AppError::ScreenRecordingPermissionDenied&) const {
        return localized("Screen Recording permission denied. Please enable in System Settings.");
    }
    std::string operator()(const AppError::AudioDeviceNotFound&) const { return localized("Audio device not found."); }
};

}  // namespace

std::string AppError::description() const { return std::visit(Description(), which_); }

}  // namespace tessivox::core
