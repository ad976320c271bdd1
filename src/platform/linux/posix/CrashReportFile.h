#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/ProgramImage.h"
#include "services/telemetry/BreadcrumbRing.h"

namespace tessivox::posix {

/// What is the same for all reports of a process.
struct ReportSource {
    Descriptor folder;  ///< where reports go; an invalid one: nowhere
    ProgramImage program;
    const telemetry::BreadcrumbRing& breadcrumbs;
    /// Finished lines "key: value\n" for each report. What it points to stays for the life of the process.
    std::atomic<const std::string*> scope = nullptr;
};

/// What happened.
struct Incident {
    std::string_view type;
    int signal = 0;  ///< 0: none
    int code = 0;    ///< si_code
    const void* address = nullptr;
    const void* instruction = nullptr;  ///< where the thread was
    pid_t thread = 0;
    std::array<char, 16> threadName{};
};

/// The name of the calling thread. Async-signal-safe.
std::array<char, 16> nameOfThisThread() noexcept;

/// A new report of lines "key: value", named after time and process, mode 0600. Async-signal-safe throughout. What can
/// go wrong comes last, so that a crash in it loses little: making it writes all but the frames; each line stands in
/// the file at once; the last line reads "end:".
class CrashReportFile {
public:
    CrashReportFile(const ReportSource& source, const Incident& incident) noexcept;
    CrashReportFile(const CrashReportFile&) = delete;
    CrashReportFile& operator=(const CrashReportFile&) = delete;
    ~CrashReportFile();

    /// Innermost first. Those of the program itself are marked "own" and carry their offset from the load address.
    void writeFrames(std::span<void* const> addresses) noexcept;

private:
    const ReportSource& source_;
    Descriptor file_;

    void writeIncident(const Incident& incident) noexcept;
    void writeProgram() noexcept;
    void writeBreadcrumbs() noexcept;
    void writeModules() noexcept;
    void writeModule(std::string_view mapping) noexcept;
    void write(std::string_view text) noexcept;
};

}  // namespace tessivox::posix
