#include "services/telemetry/CrashReportJson.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <nlohmann/json.hpp>

namespace tessivox::telemetry {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kTag = "tag ";
constexpr std::array<std::string_view, 9> kFacts{"time",    "environment", "thread",   "signal",      "code",
                                                 "address", "instruction", "build_id", "load_address"};

/// Calls with key and value of each finished line "key: value".
template <typename Visit>
void forEachLine(std::string_view report, Visit visit) {
    for (auto end = report.find('\n'); end != report.npos; end = report.find('\n')) {
        const auto line = report.substr(0, end);
        const auto colon = line.find(": ");
        if (colon != line.npos) visit(line.substr(0, colon), line.substr(colon + 2));
        report.remove_prefix(end + 1);
    }
}

StackFrame frameOf(std::string_view value) {
    StackFrame frame;
    const auto space = std::min(value.find(' '), value.size());
    const auto digits = value.substr(0, space).substr(std::min<std::size_t>(2, space));
    std::from_chars(digits.data(), digits.data() + digits.size(), frame.address, 16);
    frame.inApp = value.substr(space).starts_with(" own");
    return frame;
}

std::string hexText(std::uint64_t number) {
    std::array<char, 16> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return "0x" + std::string(digits.data(), end);
}

Json framesJson(const std::vector<StackFrame>& frames) {
    auto json = Json::array();
    for (const auto& frame : frames) json.push_back({{"address", hexText(frame.address)}, {"in_app", frame.inApp}});
    return json;
}

Json eventJson(const CrashEvent& event) {
    Json json;
    json["exceptions"] = Json::array();
    for (const auto& exception : event.exceptions) {
        json["exceptions"].push_back({{"type", exception.type}, {"frames", framesJson(exception.frames)}});
    }
    json["threads"] = Json::array();
    for (const auto& thread : event.threads) {
        json["threads"].push_back({{"name", thread.name}, {"frames", framesJson(thread.frames)}});
    }
    return json;
}

}  // namespace

CrashEvent crashEventOf(std::string_view report) {
    CrashException exception;
    forEachLine(report, [&](std::string_view key, std::string_view value) {
        if (key == "type") exception.type = value;
        if (key == "frame") exception.frames.push_back(frameOf(value));
    });
    return {{std::move(exception)}, {}};
}

std::string crashReportJson(const CrashEvent& event, std::string_view report) {
    auto json = eventJson(event);
    json["tags"] = Json::object();
    json["breadcrumbs"] = Json::array();
    forEachLine(report, [&](std::string_view key, std::string_view value) {
        if (std::ranges::find(kFacts, key) != kFacts.end()) json[std::string(key)] = value;
        if (key == "user") json["user"] = {{"id", value}};
        if (key == "breadcrumb") json["breadcrumbs"].push_back(value);
        if (key.starts_with(kTag)) json["tags"][std::string(key.substr(kTag.size()))] = value;
    });
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tessivox::telemetry
