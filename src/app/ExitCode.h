#pragma once

namespace tessivox::app {

/// What the program ends with.
enum class ExitCode { done = 0, failed = 1, usage = 2, notRunning = 3, nothingRecorded = 4 };

}  // namespace tessivox::app
