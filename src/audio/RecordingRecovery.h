#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "audio/EncodingTools.h"
#include "base/Error.h"

namespace tessivox::audio {

/// Who is told how the recovery goes, on its queue. Either may be absent.
struct RecoveryObserver {
    /// The share done of the recording of that base name, from 0 to 1.
    std::function<void(const std::string& base, double share)> progressed;
    /// A recording could not be finished, and stays.
    std::function<void(const std::string& base, const base::Error& reason)> failed;
};

/// Finishes the recordings that a crash, a kill or a power failure has left in the folder of temporary files: each
/// becomes an `.m4a` in the recordings folder, at 128 kbit/s, under its own name or "_recovered_1" and so on. A
/// recording that a running program is making is left alone, one that was saved already, there or where it was to be
/// saved, merely loses its temporary files, and one that cannot be finished stays for the next time. Other leftovers
/// are removed. Returns the files made, in order of the recordings' names. Never throws; long, so call it on a queue,
/// which is none of the helpers. Stopping it leaves the rest for the next time.
std::vector<std::filesystem::path> recoverIncompleteFiles(const EncodingTools& tools,
                                                          const std::filesystem::path& incompleteFolder,
                                                          const std::filesystem::path& recordingsFolder,
                                                          const std::stop_token& stop,
                                                          const RecoveryObserver& observer = {});

}  // namespace tessivox::audio
