#include "transcription/PendingDocument.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/Json.h"
#include "base/Text.h"

namespace tessivox::transcription {
namespace {

using nlohmann::json;

constexpr const char* kEncodedMark = "audioPathIsPercentEncoded";
constexpr base::WallTime kReferenceDate{std::chrono::sys_days(std::chrono::year(2001) / 1 / 1)};
/// Dates further from the reference than this, in seconds, do not fit a WallTime: some 250 years.
constexpr double kFurthest = 7.9e9;
/// An array of objects of plain values is all there is; what only nests must not be let in.
constexpr int kMaxDepth = 4;

const json* member(const json& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> text(const json& object, const char* name) {
    const auto* value = member(object, name);
    return value && value->is_string() ? std::optional(value->get<std::string>()) : std::nullopt;
}

std::optional<std::filesystem::path> audioPath(const json& object) {
    auto path = text(object, "audioPath");
    const auto* mark = member(object, kEncodedMark);
    if (path && mark && *mark == json(true)) path = base::percentDecoded(*path);
    if (!path || path->empty() || path->find('\0') != std::string::npos) return std::nullopt;
    return std::filesystem::path(*path);
}

std::optional<base::WallTime> date(const json& object) {
    const auto* value = member(object, "submittedAt");
    if (!value || !value->is_number()) return std::nullopt;
    const auto seconds = value->get<double>();
    if (!std::isfinite(seconds) || std::abs(seconds) > kFurthest) return std::nullopt;
    return kReferenceDate + base::fromSeconds(seconds);
}

std::optional<PendingTask> task(const json& object) {
    if (!object.is_object()) return std::nullopt;
    auto path = audioPath(object);
    auto taskId = text(object, "taskId");
    const auto submittedAt = date(object);
    if (!path || !taskId || !submittedAt) return std::nullopt;
    return PendingTask{std::move(*path), std::move(*taskId), *submittedAt};
}

}  // namespace

std::optional<PendingTasks> PendingDocument::parsed(std::string_view text) {
    const auto array = text.size() > kMaxSize ? json() : base::parsedJson(text, kMaxDepth);
    if (!array.is_array()) return std::nullopt;
    PendingTasks tasks;
    for (const auto& object : array) {
        auto entry = task(object);
        if (!entry) return std::nullopt;
        const auto path = entry->audioPath;
        tasks.insert_or_assign(path, std::move(*entry));
    }
    return tasks;
}

std::string PendingDocument::text(const PendingTasks& tasks) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& [path, entry] : tasks) {
        const bool isText = base::isUTF8(path.native());
        nlohmann::ordered_json object;
        object["audioPath"] = isText ? path.native() : base::percentEncoded(path.native());
        object["taskId"] = entry.taskId;
        object["submittedAt"] = base::toSeconds(entry.submittedAt - kReferenceDate);
        if (!isText) object[kEncodedMark] = true;
        array.push_back(std::move(object));
    }
    return array.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace tessivox::transcription
