#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <vector>

#include "base/Task.h"
#include "base/ports/Files.h"
#include "core/ports/Alerts.h"

namespace tessivox::library {

/// Who is told that interrupted recordings came back. All of it outlives the announcement.
struct RecoveryListeners {
    core::Alerts& alerts;
    /// Shows a file in the list; its duration in seconds.
    std::function<void(const std::filesystem::path& url, double duration)> addRecording;
    /// Sends the usage signal with the number of files.
    std::function<void(std::size_t count)> track;
};

/// Puts the recovered files into the list, in their order, then tells the user and ends when that was answered. Does
/// nothing if there are none. Never throws. Main thread.
base::Task<void> announceRecovery(base::Files& files, RecoveryListeners listeners,
                                  std::vector<std::filesystem::path> recovered);

}  // namespace tessivox::library
