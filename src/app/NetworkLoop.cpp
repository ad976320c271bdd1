#include "app/NetworkLoop.h"

#include <clocale>
#include <string>

#include "base/Log.h"

namespace tessivox::app {
namespace {

void logMessage(QtMsgType, const QMessageLogContext&, const QString& message) {
    base::log("Qt: " + message.toStdString());
}

}  // namespace

base::HttpClient& NetworkLoop::client() {
    if (client_) return *client_;
    static int count = 1;
    static char name[] = "tessivox";
    static char* arguments[] = {name, nullptr};
    qInstallMessageHandler(logMessage);
    application_.emplace(count, arguments);
    std::setlocale(LC_NUMERIC, "C");  // the application object takes the user's, and with it a decimal comma
    host_.emplace(qt::GuestLoop{loop_.fd(), [this] { return loop_.nextDeadline(); }, [this] { return loop_.now(); },
                                [this] { loop_.dispatch(); }});
    return client_.emplace(std::string("Tessivox/") + TESSIVOX_VERSION, trustedFile_);
}

void NetworkLoop::run() {
    if (application_)
        QCoreApplication::exec();
    else
        loop_.run();
}

void NetworkLoop::quit() {
    if (application_)
        QCoreApplication::quit();
    else
        loop_.quit();
}

}  // namespace tessivox::app
