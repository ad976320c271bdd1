#pragma once

#include <filesystem>
#include <vector>

#include "base/Units.h"
#include "base/ports/Preferences.h"

namespace tessivox::detection {

/// Recordings that were saved when there was no time left to transcribe them. Main thread.
class LeftTranscriptions {
public:
    struct Entry {
        std::filesystem::path recording;
        base::Duration length{};
    };
    explicit LeftTranscriptions(base::Preferences& preferences) : preferences_(preferences) {}

    /// Durable when it returns.
    void leave(const std::filesystem::path& recording, base::Duration length);
    /// What was left before this start, which is forgotten here.
    std::vector<Entry> take();

private:
    base::Preferences& preferences_;
};

}  // namespace tessivox::detection
