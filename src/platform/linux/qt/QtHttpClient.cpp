#include "platform/linux/qt/QtHttpClient.h"

#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QSslCertificate>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "base/Completion.h"
#include "base/Text.h"
#include "platform/linux/qt/NetworkErrors.h"
#include "platform/linux/qt/SingleUseBody.h"

namespace tessivox::qt {
namespace {

using base::HttpErrorCode;

constexpr qint64 kMostCertificateBytes = qint64{16} << 20;

int milliseconds(base::Duration duration) {
    const auto count = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
    return static_cast<int>(std::clamp<std::int64_t>(count, 1, std::numeric_limits<int>::max()));
}

QUrl checkedUrl(const std::string& text) {
    const QUrl url(QString::fromStdString(text), QUrl::StrictMode);
    const bool isWeb = url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    if (!url.isValid() || !isWeb || url.host().isEmpty()) throw httpError(HttpErrorCode::badAddress);
    return url;
}

/// A file that is not there, is none of certificates, or cannot be read holds none.
std::optional<QSslConfiguration> tlsTrusting(const std::optional<std::filesystem::path>& file) {
    if (!file) return std::nullopt;
    QFile opened(QFile::decodeName(QByteArray::fromStdString(file->string())));
    const auto text = opened.open(QIODevice::ReadOnly) ? opened.read(kMostCertificateBytes) : QByteArray();
    const auto certificates = QSslCertificate::fromData(text, QSsl::Pem);
    if (certificates.isEmpty()) {
        constexpr auto kSentence =
            "The file \"{0}\" holds no certificates that can be read: name a PEM file with --ca-file or "
            "TESSIVOX_CA_FILE.";
        throw base::Error("certificates", 1, base::filled(base::localized(kSentence), {file->string()}));
    }
    auto configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(certificates);
    return configuration;
}

QNetworkRequest makeRequest(const base::HttpRequest& asked, const std::string& userAgent) {
    QNetworkRequest request(checkedUrl(asked.url));
    // Qt would hand the Authorization header on to whichever host a redirect names.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setTransferTimeout(milliseconds(asked.timeout));
    request.setRawHeader("User-Agent", QByteArray::fromStdString(userAgent));
    for (const auto& [name, value] : asked.headers) {
        request.setRawHeader(QByteArray::fromStdString(name), QByteArray::fromStdString(value));
    }
    return request;
}

/// Takes the bytes over, so that a large body is there once.
std::unique_ptr<SingleUseBody> takeBody(base::HttpRequest& asked) {
    auto pieces = std::exchange(asked.rest, {});
    pieces.insert(pieces.begin(), std::make_shared<const std::string>(std::exchange(asked.body, {})));
    return std::make_unique<SingleUseBody>(std::move(pieces));
}

/// A request without a body carries none, rather than one of no bytes.
QNetworkReply* startRequest(QNetworkAccessManager& manager, QNetworkRequest request, base::HttpRequest& asked) {
    const auto method = QByteArray::fromStdString(asked.method);
    const auto size = asked.bodySize();
    if (size == 0 && method == "GET") return manager.get(request);
    if (size == 0 && method == "HEAD") return manager.head(request);
    if (size == 0) return manager.sendCustomRequest(request, method);
    auto body = takeBody(asked);
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    request.setHeader(QNetworkRequest::ContentLengthHeader, static_cast<qint64>(size));
    auto* reply = manager.sendCustomRequest(request, method, body.get());
    body.release()->setParent(reply);
    return reply;
}

}  // namespace

/// One request under way; its end aborts it.
class QtHttpClient::Exchange {
public:
    Exchange(QNetworkAccessManager& manager, const QNetworkRequest& request, base::HttpRequest& asked)
        : reply_(startRequest(manager, request, asked)), hasBody_(asked.method != "HEAD") {
        // Delivered from the event loop, so that whoever is told may destroy anything of Qt's.
        QObject::connect(
            reply_, &QNetworkReply::finished, &context_, [this] { finish(); }, Qt::QueuedConnection);
        QObject::connect(reply_, &QNetworkReply::readyRead, &context_, [this] { read(); });
        QObject::connect(reply_, &QNetworkReply::sslErrors, &context_, [this] { isUntrusted_ = true; });
        QObject::connect(
            &manager, &QObject::destroyed, &context_, [this] { fail(HttpErrorCode::cancelled); }, Qt::QueuedConnection);
        QObject::connect(&deadline_, &QTimer::timeout, &context_, [this] { abortFor(HttpErrorCode::timedOut); });
        deadline_.setSingleShot(true);
        deadline_.start(milliseconds(asked.deadline));
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    ~Exchange() {
        if (!reply_) return;
        reply_->disconnect(&context_);
        reply_->abort();
        // It may be on the stack: what it told of may have ended this.
        reply_->deleteLater();
    }

    const base::Completion<base::HttpResponse>& answer() const { return answer_; }

private:
    QObject context_;
    QTimer deadline_;
    QPointer<QNetworkReply> reply_;
    base::Completion<base::HttpResponse> answer_;
    std::string body_;
    std::optional<HttpErrorCode> abortedFor_;
    bool isUntrusted_ = false;
    const bool hasBody_;  ///< the answer

    /// Now and then Qt takes a connection that ends in the middle of an answer for the end of the answer. Of what it
    /// has unpacked it does not tell the length.
    bool isCutShort() const {
        const auto length = reply_->rawHeader("Content-Length").toULongLong();
        return hasBody_ && body_.size() < length;
    }
    void read() {
        const auto bytes = reply_->readAll();
        body_.append(bytes.constData(), static_cast<std::size_t>(bytes.size()));
        if (body_.size() > kMostBytes) abortFor(HttpErrorCode::tooLarge);
    }
    void abortFor(HttpErrorCode code) {
        if (abortedFor_) return;
        abortedFor_ = code;
        reply_->abort();
    }
    void fail(HttpErrorCode code) { answer_.fail(std::make_exception_ptr(httpError(code))); }
    void finish() {
        if (!reply_) return;
        if (abortedFor_) return fail(*abortedFor_);
        if (reply_->isOpen()) read();
        if (abortedFor_) return fail(*abortedFor_);
        const auto status = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (isUntrusted_ && reply_->error() == QNetworkReply::SslHandshakeFailedError) {
            fail(HttpErrorCode::untrustedCertificate);
        } else if (isAnswer(status, reply_->error())) {
            if (isCutShort()) return fail(HttpErrorCode::connectionLost);
            succeed(status);
        } else {
            fail(codeOf(reply_->error()));
        }
    }
    void succeed(int status) {
        base::HttpResponse response;
        response.status = status;
        for (const auto& [name, value] : reply_->rawHeaderPairs()) {
            response.headers.emplace_back(name.toStdString(), value.toStdString());
        }
        response.body = std::move(body_);
        answer_.succeed(std::move(response));
    }
};

QtHttpClient::QtHttpClient(std::string userAgent, const std::optional<std::filesystem::path>& trustedFile)
    : userAgent_(std::move(userAgent)), tls_(tlsTrusting(trustedFile)) {}

QtHttpClient::~QtHttpClient() = default;

base::Task<base::HttpResponse> QtHttpClient::send(base::HttpRequest request) {
    auto prepared = makeRequest(request, userAgent_);
    if (tls_) prepared.setSslConfiguration(*tls_);
    const Exchange exchange(manager_, prepared, request);
    co_return co_await exchange.answer();
}

}  // namespace tessivox::qt
