#include "services/telemetry/TelemetrySinks.h"

#include <string_view>

#include "services/telemetry/Endpoint.h"

namespace tessivox::telemetry {
namespace {

/// The URL of an environment variable if something may be sent there; a refusal is reported.
std::string allowed(const std::optional<std::string>& url, std::string_view variable,
                    const TelemetrySinks::Surroundings& surroundings) {
    if (!url || url->empty()) return {};
    if (isAllowed(*url)) return *url;
    surroundings.report(refusalOf(variable));
    return {};
}

}  // namespace

TelemetrySinks::TelemetrySinks(const Surroundings& surroundings, const Endpoints& endpoints)
    : recorder_(surroundings.recorder), dsn_(allowed(endpoints.crashURL, "TESSIVOX_CRASH_URL", surroundings)) {
    auto& [scheduler, files, random, folder, recorder, enabled, client, report] = surroundings;
    if (auto url = allowed(endpoints.analyticsURL, "TESSIVOX_ANALYTICS_URL", surroundings); !url.empty()) {
        const QueuedAnalyticsSink::Surroundings parts{scheduler, client(), random, enabled};
        queued_.emplace(parts, SignalQueue(files, folder / "signals.jsonl"), std::move(url));
    }
    if (!dsn_.empty()) sending_.emplace(recorder, scheduler, client(), files, CrashReports(files, crashFolder(folder)));
}

AnalyticsSink& TelemetrySinks::analytics() {
    if (queued_) return *queued_;
    return none_;
}

CrashSink& TelemetrySinks::crashes() {
    if (sending_) return *sending_;
    return recorder_;
}

}  // namespace tessivox::telemetry
