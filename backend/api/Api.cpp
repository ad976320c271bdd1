#include "backend/api/Api.h"

#include <poll.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "backend/api/ConstantTime.h"
#include "backend/engines/Utf8.h"
#include "backend/http/HttpError.h"
#include "backend/http/MultipartReader.h"
#include "backend/jobs/Upload.h"
#include "base/AtEnd.h"
#include "base/Log.h"

namespace tessivox::backend {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestMessage = 64 * 1024;   // bytes
constexpr std::size_t kLargestTranscript = 8 << 20;  // bytes
constexpr std::size_t kLongestEncoding = 64 * 1024;  // bytes that multipart may add to a file

[[noreturn]] void notFound() { throw HttpError(404, "not_found", "There is nothing here."); }
[[noreturn]] void refuseAsBusy() {
    throw HttpError(503, "busy", "The server is busy with other summaries; try again in a minute.");
}
[[noreturn]] void badRequest(const char* sentence) { throw HttpError(400, "bad_request", sentence); }

/// What a JSON post brings.
json readJson(const HttpRequest& request, std::size_t limit) {
    const auto type = request.header("Content-Type");
    if (type.substr(0, type.find(';')) != "application/json") {
        throw HttpError(415, "unsupported_type", "The server expects application/json here.");
    }
    if (request.bodyLength().value_or(0) > limit) throw HttpError(413, "too_large", "That is too long.");
    std::string text;
    const bool isWhole = request.readBody([&](std::span<const char> bytes) {
        text.append(bytes.data(), bytes.size());
        return text.size() <= limit;
    });
    if (text.size() > limit) throw HttpError(413, "too_large", "That is too long.");
    auto document = isWhole ? json::parse(text, nullptr, false) : json();
    if (!document.is_object()) badRequest("The request is not a JSON object.");
    return document;
}

std::optional<std::string> textIn(const json& document, const char* key) {
    const auto found = document.find(key);
    if (found == document.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

const char* wordFor(JobState state) {
    switch (state) {
        case JobState::queued:
            return "pending";
        case JobState::running:
            return "processing";
        case JobState::completed:
            return "completed";
        case JobState::failed:
            return "failed";
    }
    return "failed";
}

/// A host's name without its port.
std::string_view hostName(std::string_view host) {
    const auto colon = host.rfind(':');
    return colon == std::string_view::npos || host.ends_with(']') ? host : host.substr(0, colon);
}

}  // namespace

struct Api::Endpoint {
    std::string_view name;
    std::string_view method;
    std::string_view path;  ///< behind "/api/"; one that ends in "/" takes an argument
    HttpAnswer (Api::*perform)(const HttpRequest&, std::string_view argument);
};

const std::vector<Api::Endpoint>& Api::endpoints() {
    static const std::vector<Endpoint> all{{"status", "GET", "transcribe/status/", &Api::status},
                                           {"usage", "GET", "usage", &Api::usage},
                                           {"me", "GET", "user/me", &Api::me},
                                           {"submit", "POST", "transcribe/submit", &Api::submit},
                                           {"summarize", "POST", "summarize", &Api::summarize},
                                           {"feedback", "POST", "feedback", &Api::keep},
                                           {"message", "POST", "message", &Api::keep},
                                           {"register", "POST", "user/register", &Api::keep},
                                           {"consent", "POST", "user/consent", &Api::keep},
                                           {"", "POST", "testing/faults", &Api::orderFaults}};
    return all;
}

HttpAnswer Api::answer(const HttpRequest& request) {
    try {
        const auto path = pathOf(request);
        ++underWay_;
        const base::AtEnd atEnd([this] {
            lastRequest_ = std::chrono::steady_clock::now();
            --underWay_;
        });
        checkOrigin(request);
        for (const auto& endpoint : endpoints()) {
            const bool takesArgument = endpoint.path.ends_with('/');
            if (!path.starts_with(endpoint.path)) continue;
            const auto argument = path.substr(endpoint.path.size());
            if (takesArgument == argument.empty() || request.method() != endpoint.method) continue;
            return serve(request, endpoint, argument);
        }
        notFound();
    } catch (const HttpError& error) {
        return {error.status(), dumped({{"error", error.description()}, {"code", error.name()}})};
    }
}

/// What stands behind "/SECRET/api/".
std::string_view Api::pathOf(const HttpRequest& request) const {
    std::string_view path(request.target());
    path = path.substr(0, path.find('?'));
    constexpr std::string_view kFolder = "/api/";
    const auto& secret = identity_.secret;
    if (path.size() < 1 + secret.size() + kFolder.size()) notFound();
    if (!isSame(path.substr(1, secret.size()), secret)) notFound();
    if (path.substr(1 + secret.size(), kFolder.size()) != kFolder) notFound();
    return path.substr(1 + secret.size() + kFolder.size());
}

/// Web pages, which browsers let send requests to this machine, are strangers even if they have learned the secret.
void Api::checkOrigin(const HttpRequest& request) const {
    const auto host = lowered(hostName(request.header("Host")));
    const bool isOurs = std::find(identity_.hosts.begin(), identity_.hosts.end(), host) != identity_.hosts.end();
    if (!isOurs || request.hasHeader("Origin")) throw HttpError(403, "forbidden", "The server is not for web pages.");
}

void Api::checkToken(const HttpRequest& request) const {
    if (!request.hasHeader("Authorization")) return;
    constexpr std::string_view kScheme = "Bearer ";
    const auto value = request.header("Authorization");
    if (!value.starts_with(kScheme) ||
        !parts_.devices.isToken(request.header("X-Device-ID"), std::string_view(value).substr(kScheme.size()))) {
        throw HttpError(401, "bad_token", "The server does not know this device's token.");
    }
}

/// The answer, spoiled as ordered.
HttpAnswer Api::serve(const HttpRequest& request, const Endpoint& endpoint, std::string_view argument) {
    const auto fault = parts_.faults.next(endpoint.name);
    if (fault && fault->kind == Fault::Kind::status) {
        request.readBody([](std::span<const char>) { return true; });
        throw HttpError(fault->status, "fault", "This fault was ordered.");
    }
    auto answer = perform(request, endpoint, argument);
    if (!fault) return answer;
    if (fault->kind == Fault::Kind::slow) ::poll(nullptr, 0, static_cast<int>(fault->delay.count()));
    if (fault->kind == Fault::Kind::malformed) answer.body = "{\"half an answer";
    answer.isCut = fault->kind == Fault::Kind::cut;
    return answer;
}

HttpAnswer Api::perform(const HttpRequest& request, const Endpoint& endpoint, std::string_view argument) {
    checkToken(request);
    return (this->*endpoint.perform)(request, endpoint.path.ends_with('/') ? argument : endpoint.name);
}

json Api::usageRecord() const {
    const auto used = std::min(parts_.jobs.transcribed(), kAllowance - 1);
    return {{"used", used}, {"limit", kAllowance}, {"remaining", kAllowance - used}, {"can_transcribe", true}};
}

HttpAnswer Api::usage(const HttpRequest&, std::string_view) { return {200, dumped({{"usage", usageRecord()}})}; }

HttpAnswer Api::me(const HttpRequest& request, std::string_view) {
    const auto token = parts_.devices.token(request.header("X-Device-ID"));
    return {200, token ? dumped({{"token", *token}}) : "{}"};
}

HttpAnswer Api::submit(const HttpRequest& request, std::string_view) {
    const auto boundary = MultipartReader::boundary(request.header("Content-Type"));
    if (!boundary) throw HttpError(415, "unsupported_type", "The server expects multipart/form-data here.");
    auto length = request.bodyLength();
    if (length) *length -= std::min<std::uint64_t>(*length, kLongestEncoding);
    auto upload = parts_.jobs.beginUpload(length);
    MultipartReader reader(*boundary, [&](std::span<const char> bytes) {
        upload->append(bytes);
        return true;
    });
    const bool isWhole = request.readBody([&](std::span<const char> bytes) { return reader.take(bytes); });
    if (!isWhole || !reader.isComplete()) badRequest("The upload is not one whole file named \"file\".");
    if (upload->size() == 0) badRequest("The upload is empty.");
    const auto id = parts_.jobs.submit(std::move(upload));
    base::log("Job " + id + " has been submitted.");
    parts_.jobArrived();
    return {200, dumped({{"task_id", id}, {"status", "pending"}})};
}

HttpAnswer Api::status(const HttpRequest&, std::string_view id) {
    const auto job = parts_.jobs.find(std::string(id));
    if (!job) throw HttpError(404, "unknown_task", "The server does not know this task.");
    if (job->isOpen() && parts_.jobs.now() - job->submitted > kClientsPatience) {
        throw HttpError(503, "still_working", "The server is still working on this recording.");
    }
    json record{{"task_id", job->id}, {"status", wordFor(job->state)}};
    if (job->state == JobState::failed) record["error"] = job->error;
    if (job->state == JobState::completed) {
        record.update(json(parts_.jobs.result(job->id)));
        record["usage"] = usageRecord();
    }
    return {200, dumped(record)};
}

HttpAnswer Api::summarize(const HttpRequest& request, std::string_view) {
    const Places::Place room(summaryRoom_);
    if (!room) refuseAsBusy();
    const auto document = readJson(request, kLargestTranscript);
    const auto text = textIn(document, "text");
    if (!text) badRequest("There is no \"text\" to summarise.");
    const Places::Place turn(summaries_);
    if (!turn) refuseAsBusy();
    try {
        const auto summary = parts_.summarizer.summarize(*text, textIn(document, "title"));
        return {200, dumped({{"summary", summary}, {"usage", usageRecord()}})};
    } catch (const base::Error& error) {
        throw HttpError(500, "no_summary", error.description());
    }
}

/// Registrations, consent, feedback and messages: there is nobody to send them to but who runs the server.
HttpAnswer Api::keep(const HttpRequest& request, std::string_view kind) {
    const auto document = readJson(request, kLargestMessage);
    parts_.messages.append(dumped({{"kind", kind}, {"time", parts_.jobs.now()}, {"content", document}}));
    return {};
}

/// {"faults": what the option --fault takes}; an empty text ends them.
HttpAnswer Api::orderFaults(const HttpRequest& request, std::string_view) {
    if (!parts_.takesFaults) notFound();
    const auto text = textIn(readJson(request, kLargestMessage), "faults");
    const auto rules = text && !text->empty() ? Faults::parse(*text) : Faults::Rules();
    if (!text || !rules) badRequest("These are no faults.");
    parts_.faults.order(*rules);
    return {};
}

}  // namespace tessivox::backend
