#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/ports/Files.h"
#include "library/Recording.h"
#include "library/ports/MediaLengths.h"

namespace tessivox::library {

/// A duration, and what the file was like when it was read: a file that was replaced is read anew.
struct CachedDuration {
    std::uint64_t size = 0;
    base::WallTime modified;
    double seconds = 0;

    bool isOf(const base::FileStatus& status) const { return size == status.size && modified == status.modified; }
};

/// By the path's bytes.
using DurationCache = std::unordered_map<std::string, CachedDuration>;

/// Makes the id of an entry. It is copied, and called on any thread.
using MakeID = std::function<std::string()>;

struct ScanResult {
    std::vector<Recording> recordings;  ///< newest first
    DurationCache durations;            ///< of exactly the files seen
};

/// What lies in a folder. One look at each audio file's status; only files that `known` does not have are opened. A
/// folder that is missing or cannot be listed is empty; files that cannot be looked at are left out, a length that
/// cannot be read is 0. Never throws for a file's sake. Any thread; after a request to stop the result is not complete.
ScanResult scanRecordings(base::Files& files, const MediaLengths& lengths, const MakeID& makeID,
                          const std::filesystem::path& folder, const DurationCache& known, const std::stop_token& stop);

}  // namespace tessivox::library
