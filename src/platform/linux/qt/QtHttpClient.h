#pragma once

#include <QNetworkAccessManager>
#include <string>

#include "base/ports/HttpClient.h"

namespace tessivox::qt {

/// HTTP by Qt's network access manager: system proxies, TLS with the system's certificates, HTTP/2. Needs the event
/// loop of a QCoreApplication, and must be destroyed before it. Main thread.
///
/// A request without a body is sent a second time if the server closes the connection without an answer.
class QtHttpClient final : public base::HttpClient {
public:
    /// `userAgent` is sent where a request has none of its own.
    explicit QtHttpClient(std::string userAgent);
    /// Requests that still run fail as cancelled.
    ~QtHttpClient() override;

    base::Task<base::HttpResponse> send(base::HttpRequest request) override;

private:
    class Exchange;
    const std::string userAgent_;
    QNetworkAccessManager manager_;
};

}  // namespace tessivox::qt
