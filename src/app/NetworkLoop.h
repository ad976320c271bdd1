#pragma once

#include <QCoreApplication>
#include <filesystem>
#include <optional>

#include "base/ports/HttpClient.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "platform/linux/qt/QtLoop.h"

namespace tessivox::app {

/// The main loop, inside Qt's from when something is sent for the first time. Main thread.
class NetworkLoop final : public base::HttpClient {
public:
    /// The certificates in `trustedFile` (PEM) are trusted beside the system's.
    explicit NetworkLoop(posix::EventLoop& loop, std::optional<std::filesystem::path> trustedFile = {})
        : loop_(loop), trustedFile_(std::move(trustedFile)) {}

    /// Throws base::HttpError also if there is no certificate in the file.
    base::Task<base::HttpResponse> send(base::HttpRequest request) override;

    /// Runs until quit().
    void run();
    void quit();

private:
    posix::EventLoop& loop_;
    const std::optional<std::filesystem::path> trustedFile_;
    std::optional<QCoreApplication> application_;
    std::optional<qt::QtLoop> host_;
    std::optional<qt::QtHttpClient> client_;
    bool isOver_ = false;

    base::HttpClient& client();
    void moveIntoQt();
};

}  // namespace tessivox::app
