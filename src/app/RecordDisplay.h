#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/Units.h"

namespace tessivox::app {

/// What a terminal shows of a recording at one moment.
struct RecordView {
    enum class Phase { starting, recording, paused, saving };
    Phase phase = Phase::starting;
    base::Duration elapsed{};               ///< sound recorded so far
    std::optional<float> microphoneLevel;   ///< 0 to 1; absent if the microphone is not recorded
    std::optional<float> systemAudioLevel;  ///< 0 to 1; absent if the computer's sound is not recorded
    base::Duration saving{};                ///< how long saving has taken so far
    double encodingProgress = 0;            ///< 0 to 1; 0 while nothing has to be encoded
    bool takesKeys = false;
};

/// One line of ASCII, at most `columns` long: what matters least goes first where the terminal is narrow.
std::string recordLine(const RecordView& view, std::size_t columns);

}  // namespace tessivox::app
