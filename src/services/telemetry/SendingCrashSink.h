#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/Scheduler.h"
#include "base/Task.h"
#include "base/TaskScope.h"
#include "base/ports/Files.h"
#include "base/ports/HttpClient.h"
#include "services/telemetry/CrashReports.h"
#include "services/telemetry/ports/CrashSink.h"

namespace tessivox::telemetry {

/// Sends the reports of earlier runs to the options' `dsn` at start, each once it has passed the filter, and removes
/// what the server has taken (a status of 200 to 299). The rest is left to the sink that keeps the reports.
class SendingCrashSink final : public CrashSink {
public:
    SendingCrashSink(CrashSink& keeper, base::Scheduler& scheduler, base::HttpClient& client, base::Files& files,
                     CrashReports reports);

    void start(const CrashOptions& options) override;
    void setScope(const CrashScope& scope) override { keeper_.setScope(scope); }
    void addBreadcrumb(const Breadcrumb& breadcrumb) override { keeper_.addBreadcrumb(breadcrumb); }

private:
    CrashSink& keeper_;
    base::HttpClient& client_;
    base::Files& files_;
    const CrashReports reports_;
    CrashOptions options_;
    base::TaskScope scope_;

    base::Task<void> sendAll(std::vector<std::filesystem::path> reports);
    /// Absent if there was no answer.
    base::Task<std::optional<base::HttpResponse>> send(std::string body);
    std::optional<std::string> bodyOf(const std::filesystem::path& report);
};

}  // namespace tessivox::telemetry
