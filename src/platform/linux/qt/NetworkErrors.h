#pragma once

#include <QNetworkReply>

#include "base/ports/HttpClient.h"

namespace tessivox::qt {

/// Whether a server answered, whatever it said. A body that was cut short, for one, is no answer though it has a
/// status.
bool isAnswer(int status, QNetworkReply::NetworkError error);

base::HttpErrorCode codeOf(QNetworkReply::NetworkError error);

/// With a sentence for the user.
base::HttpError httpError(base::HttpErrorCode code);

}  // namespace tessivox::qt
