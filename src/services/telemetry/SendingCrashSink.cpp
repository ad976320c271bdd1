#include "services/telemetry/SendingCrashSink.h"

#include <optional>
#include <string>
#include <utility>

#include "base/Log.h"
#include "services/telemetry/CrashReportJson.h"

namespace tessivox::telemetry {
namespace {

constexpr std::size_t kLongestReport = std::size_t{1} << 20;  // bytes

/// RFC 9110, section 15, and RFC 6585, section 4: what says nothing against the request itself.
bool isForLater(int status) { return status == 408 || status == 429 || status >= 500; }

}  // namespace

SendingCrashSink::SendingCrashSink(CrashSink& keeper, base::Scheduler& scheduler, base::HttpClient& client,
                                   base::Files& files, CrashReports reports)
    : keeper_(keeper), client_(client), files_(files), reports_(std::move(reports)), scope_(scheduler) {}

void SendingCrashSink::start(const CrashOptions& options) {
    options_ = options;
    keeper_.start(options);
    if (!options.dsn.empty()) scope_.start(sendAll(reports_.list()));
}

/// Leaves the rest to the next start if the server cannot take any now. A report that it does not want stays: the
/// address may be at fault, which the user can mend. It must not hold up later ones; the bound removes it one day.
base::Task<void> SendingCrashSink::sendAll(std::vector<std::filesystem::path> reports) {
    for (const auto& report : reports) {
        auto body = bodyOf(report);
        if (!body) continue;
        const auto response = co_await send(std::move(*body));
        if (!response || isForLater(response->status)) break;
        if (response->isSuccess()) files_.removeIfPossible(report);
    }
}

std::optional<std::string> SendingCrashSink::bodyOf(const std::filesystem::path& report) try {
    const auto text = files_.readAll(report, kLongestReport);
    auto event = options_.beforeSend ? options_.beforeSend(crashEventOf(text)) : crashEventOf(text);
    if (!event) return std::nullopt;
    return crashReportJson(*event, text);
} catch (const base::FileError& error) {
    base::log("[Crash] " + error.description());
    return std::nullopt;
}

base::Task<std::optional<base::HttpResponse>> SendingCrashSink::send(std::string body) {
    base::HttpRequest request;
    request.method = "POST";
    request.url = options_.dsn;
    request.headers = {{"Content-Type", "application/json"}};
    request.body = std::move(body);
    try {
        auto response = co_await client_.send(std::move(request));
        if (!response.isSuccess()) {
            base::log("[Crash] The server answered with status " + std::to_string(response.status));
        }
        co_return response;
    } catch (const base::HttpError& error) {
        base::log("[Crash] " + error.description());
    }
    co_return std::nullopt;
}

}  // namespace tessivox::telemetry
