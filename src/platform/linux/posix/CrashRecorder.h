#pragma once

#include <deque>
#include <filesystem>
#include <optional>
#include <string>

#include "base/Scheduler.h"
#include "base/ports/Files.h"
#include "platform/linux/posix/CrashHandler.h"
#include "platform/linux/posix/CrashReportFile.h"
#include "services/telemetry/BreadcrumbRing.h"
#include "services/telemetry/CrashReports.h"
#include "services/telemetry/ports/CrashSink.h"

namespace tessivox::posix {

/// Keeps reports of crashes in a folder of this machine. Its end takes the handlers away again. Main thread, except
/// where the port says "any thread".
class CrashRecorder final : public telemetry::CrashSink {
public:
    CrashRecorder(base::Scheduler& loop, base::Files& files, std::filesystem::path folder);

    void start(const telemetry::CrashOptions& options) override;
    void setScope(const telemetry::CrashScope& scope) override;
    void addBreadcrumb(const telemetry::Breadcrumb& breadcrumb) override;

private:
    base::Scheduler& loop_;
    telemetry::CrashReports reports_;
    telemetry::BreadcrumbRing breadcrumbs_;
    std::string environment_;
    std::deque<std::string> scopes_;  ///< all there have been: a report may be reading any of them
    ReportSource source_{Descriptor(), ProgramImage(), breadcrumbs_};
    std::optional<CrashHandler> handler_;

    void publishScope(const telemetry::CrashScope& scope);
};

}  // namespace tessivox::posix
