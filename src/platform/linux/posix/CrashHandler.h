#pragma once

#include "platform/linux/posix/AlternateStack.h"
#include "platform/linux/posix/CrashReportFile.h"

namespace tessivox::posix {

/// Writes a report when a signal is about to end the process, then brings back what was installed before and raises the
/// signal again, so that core dumps, other tools and the exit status are what they would be without it. One a
/// process; made and destroyed on the main thread, which gets an alternate stack. `source` outlives it.
class CrashHandler {
public:
    explicit CrashHandler(const ReportSource& source);
    CrashHandler(const CrashHandler&) = delete;
    CrashHandler& operator=(const CrashHandler&) = delete;
    ~CrashHandler();

private:
    AlternateStack stack_;
};

}  // namespace tessivox::posix
