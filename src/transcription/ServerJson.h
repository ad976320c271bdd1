#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "transcription/ServerRecords.h"

namespace tessivox::transcription {

/// Reading of the server's answers (JSON, RFC 8259). Absent if the text is not JSON in UTF-8, nests deeper than any
/// record does, lacks a required key, or has a value of another type; an optional key may be absent or null. Integers
/// are those that fit 64 bits, written without a fraction or exponent, or with one that leaves a whole number. Unknown
/// keys are ignored.
std::optional<UsageInfo> readUsage(std::string_view text);
/// The task's id.
std::optional<std::string> readSubmit(std::string_view text);
std::optional<TaskStatusResponse> readTaskStatus(std::string_view text);
std::optional<SummarizeResponse> readSummarize(std::string_view text);
/// The token for this device; absent also if it is empty.
std::optional<std::string> readDeviceToken(std::string_view text);

/// Why the server refused something.
struct APIErrorResponse {
    std::string error;  ///< for people
    std::string code;
    std::optional<UsageInfo> usage;
};
std::optional<APIErrorResponse> readAPIError(std::string_view text);

/// A flat object of texts. Bytes that are not UTF-8 are replaced; keys without a value are left out.
std::string writeTexts(std::initializer_list<std::pair<std::string_view, std::optional<std::string>>> members);

}  // namespace tessivox::transcription
