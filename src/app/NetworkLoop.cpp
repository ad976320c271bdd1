#include "app/NetworkLoop.h"

#include <clocale>
#include <string>
#include <utility>

#include "base/Error.h"
#include "base/Log.h"

namespace tessivox::app {
namespace {

void logMessage(QtMsgType, const QMessageLogContext&, const QString& message) {
    base::log("Qt: " + message.toStdString());
}

}  // namespace

base::Task<base::HttpResponse> NetworkLoop::send(base::HttpRequest request) {
    auto sending = client().send(std::move(request));
    co_return co_await sending;
}

base::HttpClient& NetworkLoop::client() {
    if (client_) return *client_;
    if (!application_) moveIntoQt();
    try {
        return client_.emplace(std::string("Tessivox/") + TESSIVOX_VERSION, trustedFile_);
    } catch (const base::HttpError&) {
        throw;
    } catch (const base::Error& error) {
        throw base::HttpError(base::HttpErrorCode::noSecureConnection, error.description());
    }
}

/// The loop that runs now ends after this turn, and goes on in Qt's.
void NetworkLoop::moveIntoQt() {
    static int count = 1;
    static char name[] = "tessivox";
    static char* arguments[] = {name, nullptr};
    qInstallMessageHandler(logMessage);
    application_.emplace(count, arguments);
    std::setlocale(LC_NUMERIC, "C");  // the application object takes the user's, and with it a decimal comma
    host_.emplace(qt::GuestLoop{loop_.fd(), [this] { return loop_.nextDeadline(); }, [this] { return loop_.now(); },
                                [this] { loop_.dispatch(); }});
    loop_.quit();
}

void NetworkLoop::run() {
    while (!isOver_) {
        if (application_)
            QCoreApplication::exec();
        else
            loop_.run();
    }
    isOver_ = false;
}

void NetworkLoop::quit() {
    isOver_ = true;
    if (application_)
        QCoreApplication::quit();
    else
        loop_.quit();
}

}  // namespace tessivox::app
