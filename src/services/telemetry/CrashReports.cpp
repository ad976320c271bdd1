#include "services/telemetry/CrashReports.h"

#include <algorithm>
#include <utility>

#include "base/Log.h"

namespace tessivox::telemetry {

CrashReports::CrashReports(base::Files& files, std::filesystem::path folder)
    : files_(files), folder_(std::move(folder)) {}

void CrashReports::prepare() try { files_.makeFolders(folder_); } catch (const base::FileError& error) {
    base::log("No crash reports will be kept. " + error.description());
}

std::vector<std::filesystem::path> CrashReports::list() const try {
    auto names = files_.list(folder_);
    std::erase_if(names, [](const auto& name) { return name.extension() != ".txt"; });
    std::ranges::sort(names);
    for (auto& name : names) name = folder_ / name;
    return names;
} catch (const base::FileError&) {
    return {};
}

void CrashReports::removeOld() {
    const auto reports = list();
    const auto surplus = std::max(reports.size(), kMostReports) - kMostReports;
    for (std::size_t index = 0; index < surplus; ++index) files_.removeIfPossible(reports[index]);
}

}  // namespace tessivox::telemetry
