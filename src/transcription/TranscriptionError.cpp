#include "transcription/TranscriptionError.h"

#include <string_view>
#include <utility>

#include "base/Text.h"
#include "base/ports/HttpClient.h"

namespace tessivox::transcription {
namespace {

using base::filled;
using base::localized;
using E = TranscriptionError;

struct Description {
    std::string operator()(const E::LimitExceeded& error) const {
        return filled(localized("Transcription limit reached ({0}/{1})"),
                      {std::to_string(error.used), std::to_string(error.limit)});
    }
    std::string operator()(const E::TranscriptionFailed& error) const {
        return filled(localized("Transcription failed: {0}"), {error.message});
    }
    std::string operator()(const E::NetworkError& error) const {
        return filled(localized("Network error: {0}"), {error.message});
    }
    std::string operator()(const E::ServerError& error) const {
        return filled(localized("Server error: {0}"), {error.message});
    }
    std::string operator()(const E::ServerHTTPError& error) const {
        return filled(localized("Server error: Status {0}"), {std::to_string(error.status)});
    }
    std::string operator()(E::NoSpeech) const { return localized("No speech detected in this recording."); }
    std::string operator()(E::TimedOut) const { return localized("The server is taking too long. Try again later."); }
    std::string operator()(E::TaskLost) const { return localized("The server lost this transcription. Try again."); }
    std::string operator()(E::AlreadyInProgress) const { return localized("Transcription already in progress."); }
};

struct TelemetryCode {
    std::string operator()(const E::LimitExceeded&) const { return "limit_exceeded"; }
    std::string operator()(const E::TranscriptionFailed&) const { return "provider_error"; }
    std::string operator()(const E::NetworkError&) const { return "network"; }
    std::string operator()(const E::ServerError&) const { return "invalid_response"; }
    std::string operator()(const E::ServerHTTPError& error) const {
        return error.status == 502 ? "server_502" : "server_" + std::to_string(error.status / 100) + "xx";
    }
    std::string operator()(E::NoSpeech) const { return "no_speech"; }
    std::string operator()(E::TimedOut) const { return "timeout"; }
    std::string operator()(E::TaskLost) const { return "task_lost"; }
    std::string operator()(E::AlreadyInProgress) const { return "already_in_progress"; }
};

/// The English words under a failed row; empty where the row says enough.
struct Hint {
    std::string_view operator()(const E::NetworkError&) const { return "No connection"; }
    std::string_view operator()(const E::ServerHTTPError& error) const {
        return error.status >= 500 ? "Server unavailable" : "";
    }
    std::string_view operator()(E::TimedOut) const { return "Timed out"; }
    std::string_view operator()(const E::LimitExceeded&) const { return {}; }
    std::string_view operator()(const E::TranscriptionFailed&) const { return {}; }
    std::string_view operator()(const E::ServerError&) const { return {}; }
    std::string_view operator()(E::NoSpeech) const { return {}; }
    std::string_view operator()(E::TaskLost) const { return {}; }
    std::string_view operator()(E::AlreadyInProgress) const { return {}; }
};

std::string sentence(const E::Case& which) { return std::visit(Description(), which); }

}  // namespace

TranscriptionError::TranscriptionError(Case which)
    : Error("transcription", static_cast<int>(which.index()), sentence(which)), which_(std::move(which)) {}

std::string TranscriptionError::telemetryCode() const { return std::visit(TelemetryCode(), which_); }

bool TranscriptionError::isTransient() const {
    if (const auto* network = as<NetworkError>()) {
        return network->code != static_cast<int>(base::HttpErrorCode::cancelled);
    }
    const auto* answer = as<ServerHTTPError>();
    return answer && (answer->status == 500 || answer->status == 502 || answer->status == 503 || answer->status == 504);
}

std::optional<std::string> TranscriptionError::failureHint() const {
    const auto hint = std::visit(Hint(), which_);
    return hint.empty() ? std::nullopt : std::optional(localized(hint));
}

}  // namespace tessivox::transcription
