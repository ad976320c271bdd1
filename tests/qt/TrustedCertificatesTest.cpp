#include <gtest/gtest.h>

#include <QFile>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTemporaryDir>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "base/Error.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "support/Certificate.h"

namespace tessivox::qt {
namespace {

using base::HttpErrorCode;
using Path = std::filesystem::path;

/// A server on 127.0.0.1 whose certificate nobody knows.
struct TrustedCertificatesTest : testing::QtTest {
    QTemporaryDir folder;
    const testing::Certificate made{folder.path().toStdString()};
    const Path& certificate = made.certificate;
    const Path& key = made.key;
    QSslServer server;

    TrustedCertificatesTest() {
        QSslConfiguration configuration;
        configuration.setLocalCertificate(QSslCertificate(read(certificate)));
        configuration.setPrivateKey(QSslKey(read(key), QSsl::Ec));
        server.setSslConfiguration(configuration);
        QObject::connect(&server, &QTcpServer::pendingConnectionAvailable, &server, [this] { answer(); });
        if (!server.listen(QHostAddress::LocalHost)) throw std::runtime_error("listen");
    }
    static QByteArray read(const Path& path) {
        QFile file(QString::fromStdString(path.string()));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void answer() {
        auto* const connection = server.nextPendingConnection();
        QObject::connect(connection, &QTcpSocket::readyRead, connection, [connection] {
            connection->write("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nhi");
            connection->disconnectFromHost();
        });
    }
    /// The body of the answer, or the failure's code.
    std::string askTrusting(const std::optional<Path>& file) {
        QtHttpClient client("Tessivox/1.2", file);
        base::HttpRequest request;
        request.url = "https://127.0.0.1:" + std::to_string(server.serverPort()) + "/";
        try {
            return finish(client.send(request)).body;
        } catch (const base::HttpError& error) {
            return std::to_string(error.code());
        }
    }
};

TEST_F(TrustedCertificatesTest, TrustsAServerByTheUsersFileAlone) {
    EXPECT_EQ(askTrusting(certificate), "hi");
    EXPECT_EQ(askTrusting(std::nullopt), std::to_string(static_cast<int>(HttpErrorCode::untrustedCertificate)));
}

TEST_F(TrustedCertificatesTest, RefusesAFileThatHoldsNoCertificate) {
    const auto other = certificate.parent_path() / "other.pem";
    std::ofstream(other) << "nothing of the kind";
    for (const auto& bad : {other, key, certificate.parent_path(), certificate.parent_path() / "missing"}) {
        try {
            const QtHttpClient client("Tessivox/1.2", bad);
            ADD_FAILURE() << bad;
        } catch (const base::Error& error) {
            EXPECT_NE(error.description().find(bad.string()), std::string::npos) << error.description();
        }
    }
}

}  // namespace
}  // namespace tessivox::qt
