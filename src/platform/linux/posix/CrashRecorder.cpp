#include "platform/linux/posix/CrashRecorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "services/telemetry/CrashEvent.h"

namespace tessivox::posix {
namespace {

void addLine(std::string& text, const std::string& key, std::string value) {
    std::ranges::replace(value, '\n', ' ');
    text += key + ": " + value + "\n";
}

}  // namespace

CrashRecorder::CrashRecorder(EventLoop& loop, base::Files& files, std::filesystem::path folder)
    : loop_(loop), reports_(files, std::move(folder)), mainThreadName_(nameOfThisThread()) {}

void CrashRecorder::start(const telemetry::CrashOptions& options) {
    reports_.prepare();
    reports_.removeOld();
    source_.folder = Descriptor(::open(reports_.folder().c_str(), O_DIRECTORY | O_RDONLY | O_CLOEXEC));
    source_.program = ProgramImage::current();
    environment_ = options.environment;
    publishScope({});
    handler_.emplace(source_);
    if (options.enableAppHangTracking) {
        hangWatch_.emplace(loop_, options.appHangTimeoutInterval,
                           [this, options](std::span<void* const> addresses) { reportHang(options, addresses); });
    }
}

/// On the watching thread.
void CrashRecorder::reportHang(const telemetry::CrashOptions& options, std::span<void* const> addresses) {
    telemetry::CrashException hang{std::string(telemetry::kAppHanging), {}, {}};
    for (const void* address : addresses) {
        const auto number = reinterpret_cast<std::uintptr_t>(address);
        hang.frames.push_back({number, source_.program.contains(number)});
    }
    if (options.beforeSend && !options.beforeSend({{std::move(hang)}, {}})) return;
    Incident incident;
    incident.type = telemetry::kAppHanging;
    incident.thread = ::getpid();  // the main thread's identifier too
    incident.threadName = mainThreadName_;
    CrashReportFile(source_, incident).writeFrames(addresses);
    reports_.removeOld();
}

void CrashRecorder::setScope(const telemetry::CrashScope& scope) { publishScope(scope); }

void CrashRecorder::publishScope(const telemetry::CrashScope& scope) {
    auto& text = scopes_.emplace_back();
    addLine(text, "environment", environment_);
    for (const auto& [key, value] : scope.tags) addLine(text, "tag " + key, value);
    if (!scope.userID.empty()) addLine(text, "user", scope.userID);
    source_.scope.store(&text, std::memory_order_release);
}

void CrashRecorder::addBreadcrumb(const telemetry::Breadcrumb& breadcrumb) {
    breadcrumbs_.add(loop_.wallNow(), breadcrumb);
}

}  // namespace tessivox::posix
