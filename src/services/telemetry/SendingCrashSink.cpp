#include "services/telemetry/SendingCrashSink.h"

#include <utility>

#include "base/Log.h"
#include "services/telemetry/CrashReportJson.h"

namespace tessivox::telemetry {
namespace {

constexpr std::size_t kLongestReport = std::size_t{1} << 20;  // bytes

}  // namespace

SendingCrashSink::SendingCrashSink(CrashSink& keeper, base::Scheduler& scheduler, base::HttpClient& client,
                                   base::Files& files, CrashReports reports)
    : keeper_(keeper), client_(client), files_(files), reports_(std::move(reports)), scope_(scheduler) {}

void SendingCrashSink::start(const CrashOptions& options) {
    options_ = options;
    keeper_.start(options);
    if (!options.dsn.empty()) scope_.start(sendAll(reports_.list()));
}

/// Stops at the first that is not taken: the next start tries again.
base::Task<void> SendingCrashSink::sendAll(std::vector<std::filesystem::path> reports) {
    for (const auto& report : reports) {
        auto body = bodyOf(report);
        if (!body) continue;
        const bool isTaken = co_await send(std::move(*body));
        if (!isTaken) break;
        files_.removeIfPossible(report);
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

base::Task<bool> SendingCrashSink::send(std::string body) {
    base::HttpRequest request;
    request.method = "POST";
    request.url = options_.dsn;
    request.headers = {{"Content-Type", "application/json"}};
    request.body = std::move(body);
    try {
        const auto response = co_await client_.send(std::move(request));
        if (response.isSuccess()) co_return true;
        base::log("[Crash] The server answered with status " + std::to_string(response.status));
    } catch (const base::HttpError& error) {
        base::log("[Crash] " + error.description());
    }
    co_return false;
}

}  // namespace tessivox::telemetry
