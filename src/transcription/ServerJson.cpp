#include "transcription/ServerJson.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "base/Json.h"

namespace tessivox::transcription {
namespace {

using nlohmann::json;

/// The records nest two deep. What goes far beyond that is not read, since it would cost memory for nothing.
constexpr int kMaxDepth = 64;

/// Takes the members of one record and remembers whether each was as it must be.
class Record {
public:
    explicit Record(const json& value) : value_(value), isSound_(value.is_object()) {}

    bool isSound() const { return isSound_; }

    template <typename T>
    void require(const char* key, T& target) {
        const auto* member = find(key);
        isSound_ = member && take(*member, target) && isSound_;
    }
    template <typename T>
    void allow(const char* key, std::optional<T>& target) {
        const auto* member = find(key);
        if (member) isSound_ = take(*member, target.emplace()) && isSound_;
    }

private:
    const json& value_;
    bool isSound_;

    /// Null if the key is absent or null.
    const json* find(const char* key) const {
        if (!value_.is_object()) return nullptr;
        const auto found = value_.find(key);
        return found == value_.end() || found->is_null() ? nullptr : &*found;
    }
    static bool take(const json& member, std::string& target) {
        if (!member.is_string()) return false;
        target = member.get_ref<const std::string&>();
        return true;
    }
    static bool take(const json& member, bool& target) {
        if (!member.is_boolean()) return false;
        target = member.get<bool>();
        return true;
    }
    static bool take(const json& member, double& target) {
        if (!member.is_number()) return false;
        target = member.get<double>();
        return std::isfinite(target);
    }
    static bool take(const json& member, std::int64_t& target) {
        if (member.is_number_float()) return takeWhole(member.get<double>(), target);
        if (!member.is_number_integer()) return false;
        constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        if (member.is_number_unsigned() && member.get<std::uint64_t>() > kLargest) return false;
        target = member.get<std::int64_t>();
        return true;
    }
    /// "12.0" and "1e3" are whole numbers to a JSON reader (RFC 8259, section 6); beyond 2^53 a double no longer says
    /// which.
    static bool takeWhole(double number, std::int64_t& target) {
        constexpr double kMostExact = 9007199254740992.0;
        if (!(std::abs(number) <= kMostExact) || std::trunc(number) != number) return false;
        target = static_cast<std::int64_t>(number);
        return true;
    }
    static bool take(const json& member, UsageInfo& target) {
        Record record(member);
        record.require("used", target.used);
        record.require("limit", target.limit);
        record.require("remaining", target.remaining);
        record.require("can_transcribe", target.canTranscribe);
        record.allow("resets_at", target.resetsAt);
        return record.isSound();
    }
};

/// Reads a record whose members `describe` names.
template <typename T, typename Describe>
std::optional<T> read(std::string_view text, Describe describe) {
    const auto value = base::parsedJson(text, kMaxDepth);
    Record record(value);
    T target;
    describe(record, target);
    if (!record.isSound()) return std::nullopt;
    return target;
}

}  // namespace

std::optional<UsageInfo> readUsage(std::string_view text) {
    return read<UsageInfo>(text, [](Record& record, UsageInfo& usage) { record.require("usage", usage); });
}

std::optional<std::string> readSubmit(std::string_view text) {
    return read<std::string>(text, [](Record& record, std::string& taskId) {
        std::string status;
        record.require("task_id", taskId);
        record.require("status", status);
    });
}

std::optional<TaskStatusResponse> readTaskStatus(std::string_view text) {
    return read<TaskStatusResponse>(text, [](Record& record, TaskStatusResponse& task) {
        record.require("task_id", task.taskId);
        record.require("status", task.status);
        record.allow("text", task.text);
        record.allow("duration_seconds", task.durationSeconds);
        record.allow("provider", task.provider);
        record.allow("language_code", task.languageCode);
        record.allow("confidence", task.confidence);
        record.allow("language_confidence", task.languageConfidence);
        record.allow("usage", task.usage);
        record.allow("error", task.error);
        record.allow("title", task.title);
        record.allow("gist", task.gist);
    });
}

std::optional<SummarizeResponse> readSummarize(std::string_view text) {
    return read<SummarizeResponse>(text, [](Record& record, SummarizeResponse& response) {
        record.require("summary", response.summary);
        record.require("usage", response.usage);
    });
}

std::optional<std::string> readDeviceToken(std::string_view text) {
    auto token = read<std::optional<std::string>>(
        text, [](Record& record, std::optional<std::string>& found) { record.allow("token", found); });
    return token && *token && !(*token)->empty() ? std::move(*token) : std::nullopt;
}

std::optional<APIErrorResponse> readAPIError(std::string_view text) {
    return read<APIErrorResponse>(text, [](Record& record, APIErrorResponse& response) {
        record.require("error", response.error);
        record.require("code", response.code);
        record.allow("usage", response.usage);
    });
}

std::string writeTexts(std::initializer_list<std::pair<std::string_view, std::optional<std::string>>> members) {
    auto object = json::object();
    for (const auto& [key, value] : members) {
        if (value) object[std::string(key)] = *value;
    }
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace tessivox::transcription
