#include "services/telemetry/Analytics.h"

#include <algorithm>
#include <cassert>
#include <optional>
#include <utility>
#include <variant>

#include "base/Log.h"
#include "services/telemetry/Vocabulary.h"

namespace tessivox::telemetry {
namespace {

constexpr std::string_view kLastRunVersionKey = "lastRunAppVersion";
constexpr std::string_view kFirstRecordingKey = "didReportFirstRecordingActivation";
constexpr std::string_view kFirstRecordingFeature = "first_recording";

void logLine(std::string_view what, std::string_view subject) {
    base::log("[Analytics] " + std::string(what) + ": " + std::string(subject));
}

template <typename T>
std::optional<T> stored(const base::Preferences& preferences, std::string_view key) {
    const auto value = preferences.value(key);
    const auto* typed = value ? std::get_if<T>(&*value) : nullptr;
    return typed ? std::optional(*typed) : std::nullopt;
}

[[maybe_unused]] bool mayCarry(AnalyticsEvent event, const Parameters& parameters) {
    return std::ranges::all_of(parameters, [&](const auto& entry) { return rowOf(event).allows(entry.first); });
}

}  // namespace

std::string_view signalName(AnalyticsEvent event) { return rowOf(event).name; }

Analytics::Analytics(AnalyticsSink& sink, base::Preferences& preferences, std::function<bool()> enabled,
                     std::string applicationVersion)
    : sink_(sink),
      preferences_(preferences),
      enabled_(std::move(enabled)),
      applicationVersion_(std::move(applicationVersion)) {}

void Analytics::start() {
    sink_.initialise(kTelemetryAppID);
    logLine("Initialized with appID", kTelemetryAppID);
    checkVersion();
}

void Analytics::checkVersion() {
    if (applicationVersion_.empty()) return;
    const auto last = stored<std::string>(preferences_, kLastRunVersionKey);
    preferences_.set(kLastRunVersionKey, applicationVersion_);
    if (!last || *last == applicationVersion_) return;
    track(AnalyticsEvent::updateInstalled, {{"from", *last}, {"to", applicationVersion_}});
}

void Analytics::track(AnalyticsEvent event, const Parameters& parameters) {
    assert(mayCarry(event, parameters) && "a parameter that the vocabulary does not give this event");
    if (!enabled_()) return logLine("Skipped (disabled)", signalName(event));
    sink_.send(signalName(event), parameters);
    logLine("Sent", signalName(event));
}

void Analytics::reportFirstRecording() {
    if (!enabled_() || stored<bool>(preferences_, kFirstRecordingKey).value_or(false)) return;
    preferences_.set(kFirstRecordingKey, true);
    sink_.sendActivation(kFirstRecordingFeature);
    logLine("Sent activation", kFirstRecordingFeature);
}

}  // namespace tessivox::telemetry
