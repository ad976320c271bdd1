#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "base/Units.h"
#include "base/Uuid.h"
#include "base/ports/Preferences.h"
#include "services/telemetry/Breadcrumb.h"
#include "services/telemetry/ports/CrashSink.h"

namespace tessivox::telemetry {

/// Which program this is; empty where it is not known.
struct BuildInfo {
    std::string version;
    std::string buildNumber;
};

/// The front to crash reporting: tags the reports, filters the hang reports, and takes breadcrumbs. Independent of the
/// switch for usage signals. Main thread, except where a member says "any thread".
class CrashReporter {
public:
    /// `dsn` is where reports go; empty: they stay on this machine.
    CrashReporter(CrashSink& sink, base::Preferences& preferences, base::RandomBytes random, BuildInfo build,
                  std::string dsn = {});

    /// Once a start, before Analytics::start().
    void start();
    /// The random identifier of this installation, made at first need and never changed: upper-case UUID text.
    std::string deviceID();

    /// Any thread, as are those below.
    void addBreadcrumb(std::string message, std::string category, BreadcrumbLevel level, BreadcrumbData data = {});
    void applicationStarted();
    void recordingStarted(std::string source);
    void recordingStopped(base::Duration duration);
    void transcriptionStarted(std::string fileName);
    void transcriptionFailed(std::string fileName, std::string error);
    void error(std::string message, const std::exception_ptr& error = nullptr);

private:
    CrashSink& sink_;
    base::Preferences& preferences_;
    base::RandomBytes random_;
    BuildInfo build_;
    std::string dsn_;
};

}  // namespace tessivox::telemetry
