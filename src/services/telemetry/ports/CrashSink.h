#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "base/Units.h"
#include "services/telemetry/Breadcrumb.h"
#include "services/telemetry/CrashEvent.h"

namespace tessivox::telemetry {

struct CrashOptions {
    std::string dsn;  ///< where reports go; empty: they stay on this machine
    double tracesSampleRate = 0.1;
    bool enableAppHangTracking = true;
    base::Duration appHangTimeoutInterval = std::chrono::seconds(3);
    /// What is left of a report before it is kept or sent; nothing drops it. Any thread.
    std::function<std::optional<CrashEvent>(CrashEvent)> beforeSend;
    std::string environment = "production";
};

/// What every report of this run carries.
struct CrashScope {
    std::map<std::string, std::string> tags;
    std::string userID;
};

/// What watches over the process and keeps its reports. Failures are its own matter.
class CrashSink {
public:
    virtual ~CrashSink() = default;
    /// Called once, before the rest. Main thread.
    virtual void start(const CrashOptions& options) = 0;
    /// Main thread.
    virtual void setScope(const CrashScope& scope) = 0;
    /// Any thread.
    virtual void addBreadcrumb(const Breadcrumb& breadcrumb) = 0;
};

}  // namespace tessivox::telemetry
