#include "core/AppState.h"

#include "base/Text.h"

namespace tessivox::core {

void AppState::startRecordingClock() {
    recordingDuration.set(0.0);
    resumeRecordingClock();
}

void AppState::resumeRecordingClock() {
    recordingTimer =
        scheduler_.every(std::chrono::seconds(1), [this] { recordingDuration.set(recordingDuration.get() + 1.0); });
}

std::string AppState::formattedDuration(double seconds) {
    const auto whole = static_cast<long long>(seconds);
    const auto rest = base::paddedNumber(whole / 60 % 60, 2) + ":" + base::paddedNumber(whole % 60, 2);
    return whole < 3600 ? rest : std::to_string(whole / 3600) + ":" + rest;
}

}  // namespace tessivox::core
