#include "app/ServerChoice.h"

#include "base/ports/HttpClient.h"

namespace tessivox::app {
namespace {

std::optional<std::string> namedServer(const transcription::ServerSettings& settings) {
    try {
        return transcription::configuredServer(settings);
    } catch (const transcription::ServerAddressError& error) {
        throw base::HttpError(base::HttpErrorCode::badAddress, error.description());
    }
}

}  // namespace

base::Task<std::string> ServerChoice::baseURL() {
    if (auto named = namedServer(settings_())) co_return std::move(*named);
    co_return co_await local_.baseURL();
}

std::string ServerChoice::shownBaseURL() const {
    try {
        const auto named = transcription::configuredServer(settings_());
        const auto url = named ? named : local_.lastURL();
        return url ? transcription::maskedURL(*url) : "(the server of this computer)";
    } catch (const transcription::ServerAddressError&) {
        return "(no usable address)";
    }
}

}  // namespace tessivox::app
