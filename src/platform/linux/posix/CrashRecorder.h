#pragma once

#include <array>
#include <deque>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "base/ports/Files.h"
#include "platform/linux/posix/CrashHandler.h"
#include "platform/linux/posix/CrashReportFile.h"
#include "platform/linux/posix/HangWatch.h"
#include "services/telemetry/BreadcrumbRing.h"
#include "services/telemetry/CrashReports.h"
#include "services/telemetry/ports/CrashSink.h"

namespace tessivox::posix {

/// Keeps reports of crashes and hangs in a folder of this machine. Its end takes all handlers away again. Main thread,
/// except where the port says "any thread".
class CrashRecorder final : public telemetry::CrashSink {
public:
    CrashRecorder(EventLoop& loop, base::Files& files, std::filesystem::path folder);

    void start(const telemetry::CrashOptions& options) override;
    void setScope(const telemetry::CrashScope& scope) override;
    void addBreadcrumb(const telemetry::Breadcrumb& breadcrumb) override;

private:
    EventLoop& loop_;
    telemetry::CrashReports reports_;
    telemetry::BreadcrumbRing breadcrumbs_;
    const std::array<char, 16> mainThreadName_;
    std::string environment_;
    std::deque<std::string> scopes_;  ///< all there have been: a report may be reading any of them
    ReportSource source_{Descriptor(), ProgramImage(), breadcrumbs_};
    std::optional<CrashHandler> handler_;
    std::optional<HangWatch> hangWatch_;

    void reportHang(const telemetry::CrashOptions& options, std::span<void* const> addresses);
    void publishScope(const telemetry::CrashScope& scope);
};

}  // namespace tessivox::posix
