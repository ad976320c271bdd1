#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "base/Scheduler.h"
#include "base/Uuid.h"
#include "base/ports/Files.h"
#include "base/ports/HttpClient.h"
#include "services/telemetry/NoAnalyticsSink.h"
#include "services/telemetry/QueuedAnalyticsSink.h"
#include "services/telemetry/SendingCrashSink.h"

namespace tessivox::telemetry {

/// Where the user wants signals and reports to go, by the environment; absent: nowhere.
struct Endpoints {
    std::optional<std::string> analyticsURL;
    std::optional<std::string> crashURL;
};

/// Decides what leaves this machine: nothing, unless an endpoint is configured and allowed. Main thread.
class TelemetrySinks {
public:
    struct Surroundings {
        base::Scheduler& scheduler;
        base::Files& files;
        base::RandomBytes random;
        std::filesystem::path stateFolder;  ///< this program's own
        CrashSink& recorder;                ///< keeps reports in crashFolder(stateFolder)
        std::function<bool()> analyticsEnabled;
        /// Called only if something may be sent.
        std::function<base::HttpClient&()> client;
        /// Takes a sentence for the user.
        std::function<void(const std::string& sentence)> report;
    };
    TelemetrySinks(const Surroundings& surroundings, const Endpoints& endpoints);

    static std::filesystem::path crashFolder(const std::filesystem::path& stateFolder) {
        return stateFolder / "Crashes";
    }

    AnalyticsSink& analytics();
    CrashSink& crashes();
    /// For CrashReporter; empty if reports stay here.
    const std::string& dsn() const { return dsn_; }

private:
    CrashSink& recorder_;
    std::string dsn_;
    NoAnalyticsSink none_;
    std::optional<QueuedAnalyticsSink> queued_;
    std::optional<SendingCrashSink> sending_;
};

}  // namespace tessivox::telemetry
