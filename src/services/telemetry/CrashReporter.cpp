#include "services/telemetry/CrashReporter.h"

#include <utility>
#include <variant>

#include "base/Error.h"
#include "services/telemetry/ParameterText.h"

namespace tessivox::telemetry {
namespace {

constexpr std::string_view kDeviceIDKey = "deviceID";

}  // namespace

CrashReporter::CrashReporter(CrashSink& sink, base::Preferences& preferences, base::RandomBytes random, BuildInfo build,
                             std::string dsn)
    : sink_(sink),
      preferences_(preferences),
      random_(std::move(random)),
      build_(std::move(build)),
      dsn_(std::move(dsn)) {}

void CrashReporter::start() {
    CrashOptions options;
    options.dsn = dsn_;
    options.beforeSend = beforeSend;
    sink_.start(options);
    const auto device = deviceID();
    if (!build_.version.empty() && !build_.buildNumber.empty()) {
        sink_.setScope(
            {{{"app_version", build_.version}, {"build_number", build_.buildNumber}, {"device_id", device}}, device});
    }
    applicationStarted();
}

std::string CrashReporter::deviceID() {
    const auto value = preferences_.value(kDeviceIDKey);
    const auto* stored = value ? std::get_if<std::string>(&*value) : nullptr;
    if (stored && !stored->empty()) return *stored;
    const auto made = base::makeUuid(random_);
    preferences_.set(kDeviceIDKey, made);
    return made;
}

void CrashReporter::addBreadcrumb(std::string message, std::string category, BreadcrumbLevel level,
                                  BreadcrumbData data) {
    sink_.addBreadcrumb({std::move(message), std::move(category), level, std::move(data)});
}

void CrashReporter::applicationStarted() { addBreadcrumb("App started", "app", BreadcrumbLevel::info); }

void CrashReporter::recordingStarted(std::string source) {
    addBreadcrumb("Recording started", "recording", BreadcrumbLevel::info, {{"source", std::move(source)}});
}

void CrashReporter::recordingStopped(base::Duration duration) {
    addBreadcrumb("Recording stopped", "recording", BreadcrumbLevel::info, {{"duration", wholeSecondsText(duration)}});
}

void CrashReporter::transcriptionStarted(std::string fileName) {
    addBreadcrumb("Transcription started", "transcription", BreadcrumbLevel::info, {{"file", std::move(fileName)}});
}

void CrashReporter::transcriptionFailed(std::string fileName, std::string error) {
    addBreadcrumb("Transcription failed", "transcription", BreadcrumbLevel::error,
                  {{"file", std::move(fileName)}, {"error", std::move(error)}});
}

void CrashReporter::error(std::string message, const std::exception_ptr& error) {
    BreadcrumbData data;
    if (error) data.emplace("error", base::describe(error));
    addBreadcrumb(std::move(message), "error", BreadcrumbLevel::error, std::move(data));
}

}  // namespace tessivox::telemetry
