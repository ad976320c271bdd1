#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::telemetry {

/// The folder of reports. Their names sort by time. Failures are no one's concern here: reports are best effort. Any
/// thread.
class CrashReports {
public:
    static constexpr std::size_t kMostReports = 20;

    CrashReports(base::Files& files, std::filesystem::path folder);

    const std::filesystem::path& folder() const { return folder_; }
    /// Makes the folder, for this user only.
    void prepare();
    /// Oldest first.
    std::vector<std::filesystem::path> list() const;
    /// Removes all but the newest kMostReports.
    void removeOld();

private:
    base::Files& files_;
    std::filesystem::path folder_;
};

}  // namespace tessivox::telemetry
