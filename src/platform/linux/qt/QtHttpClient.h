#pragma once

#include <QNetworkAccessManager>
#include <QSslConfiguration>
#include <filesystem>
#include <optional>
#include <string>

#include "base/ports/HttpClient.h"

namespace tessivox::qt {

/// HTTP by Qt's network access manager: system proxies, TLS with the system's certificates, HTTP/2. Needs the event
/// loop of a QCoreApplication, and must be destroyed before it. Main thread.
///
/// A request without a body is sent a second time if the server closes the connection without an answer.
class QtHttpClient final : public base::HttpClient {
public:
    /// `userAgent` is sent where a request has none of its own. The certificates in `trustedFile` (PEM) are trusted
    /// beside the system's; throws base::Error, with a sentence that says what to do, if it holds none.
    explicit QtHttpClient(std::string userAgent, const std::optional<std::filesystem::path>& trustedFile = {});
    /// Requests that still run fail as cancelled.
    ~QtHttpClient() override;

    base::Task<base::HttpResponse> send(base::HttpRequest request) override;

private:
    class Exchange;
    const std::string userAgent_;
    const std::optional<QSslConfiguration> tls_;
    QNetworkAccessManager manager_;
};

}  // namespace tessivox::qt
