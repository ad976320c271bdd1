#include "platform/linux/posix/CrashRecorder.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

namespace tessivox::posix {
namespace {

void addLine(std::string& text, const std::string& key, std::string value) {
    std::ranges::replace(value, '\n', ' ');
    text += key + ": " + value + "\n";
}

}  // namespace

CrashRecorder::CrashRecorder(base::Scheduler& loop, base::Files& files, std::filesystem::path folder)
    : loop_(loop), reports_(files, std::move(folder)) {}

void CrashRecorder::start(const telemetry::CrashOptions& options) {
    reports_.prepare();
    reports_.removeOld();
    source_.folder = Descriptor(::open(reports_.folder().c_str(), O_DIRECTORY | O_RDONLY | O_CLOEXEC));
    source_.program = ProgramImage::current();
    environment_ = options.environment;
    publishScope({});
    handler_.emplace(source_);
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
