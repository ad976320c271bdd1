#include "platform/linux/qt/NetworkErrors.h"

#include <string_view>

#include "base/Text.h"

namespace tessivox::qt {
namespace {

using base::HttpErrorCode;

std::string_view sentence(HttpErrorCode code) {
    switch (code) {
        case HttpErrorCode::cancelled:
            return "The request was cancelled.";
        case HttpErrorCode::badAddress:
            return "The server's address cannot be used. Check it.";
        case HttpErrorCode::timedOut:
            return "The server did not answer in time. Try again later.";
        case HttpErrorCode::hostNotFound:
            return "The server could not be found. Check its address and your connection.";
        case HttpErrorCode::refused:
            return "The server could not be reached. Check that it is running and that you are connected.";
        case HttpErrorCode::connectionLost:
            return "The connection to the server was lost. Try again.";
        case HttpErrorCode::redirected:
            return "The server points to another address. Check its address.";
        case HttpErrorCode::notConnected:
            return "There is no network connection. Connect and try again.";
        case HttpErrorCode::badAnswer:
            return "The server sent an answer that cannot be understood. Check its address.";
        case HttpErrorCode::tooLarge:
            return "The server sent more than can be taken. Check its address.";
        case HttpErrorCode::noSecureConnection:
            return "No secure connection to the server could be made. Check its address.";
        case HttpErrorCode::untrustedCertificate:
            return "The server's certificate is not trusted. Check its address, or ask who runs it.";
        case HttpErrorCode::unknown:
            break;
    }
    return "The server could not be asked. Check your connection and try again.";
}

}  // namespace

bool isAnswer(int status, QNetworkReply::NetworkError error) {
    const auto number = static_cast<int>(error);
    // The kinds for contents and servers; and status 400, which Qt counts among the protocol's.
    const bool isTheServersWord = (number >= 201 && number <= 299) || (number >= 401 && number <= 499) ||
                                  (status >= 400 && error == QNetworkReply::ProtocolInvalidOperationError);
    return status > 0 && (error == QNetworkReply::NoError || isTheServersWord);
}

HttpErrorCode codeOf(QNetworkReply::NetworkError error) {
    // Qt has many kinds, and most of them are one to us.
    if (error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError ||
        error == QNetworkReply::ProxyTimeoutError) {
        return HttpErrorCode::timedOut;  // its own aborts are told apart before
    }
    if (error == QNetworkReply::HostNotFoundError || error == QNetworkReply::ProxyNotFoundError) {
        return HttpErrorCode::hostNotFound;
    }
    if (error == QNetworkReply::ConnectionRefusedError || error == QNetworkReply::ProxyConnectionRefusedError) {
        return HttpErrorCode::refused;
    }
    if (error == QNetworkReply::RemoteHostClosedError || error == QNetworkReply::ProxyConnectionClosedError ||
        error == QNetworkReply::TemporaryNetworkFailureError || error == QNetworkReply::NetworkSessionFailedError ||
        error == QNetworkReply::UnknownNetworkError || error == QNetworkReply::ContentReSendError) {
        return HttpErrorCode::connectionLost;
    }
    if (error == QNetworkReply::SslHandshakeFailedError) return HttpErrorCode::noSecureConnection;
    if (error == QNetworkReply::TooManyRedirectsError || error == QNetworkReply::InsecureRedirectError) {
        return HttpErrorCode::redirected;
    }
    if (error == QNetworkReply::ProtocolFailure || error == QNetworkReply::ProtocolInvalidOperationError) {
        return HttpErrorCode::badAnswer;
    }
    return HttpErrorCode::unknown;
}

base::HttpError httpError(HttpErrorCode code) { return {code, base::localized(sentence(code))}; }

}  // namespace tessivox::qt
