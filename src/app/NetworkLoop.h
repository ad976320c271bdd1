#pragma once

#include <QCoreApplication>
#include <filesystem>
#include <optional>
#include <utility>

#include "base/ports/HttpClient.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "platform/linux/qt/QtLoop.h"

namespace tessivox::app {

/// The main loop, inside Qt's from when something wants to use the network. Main thread.
class NetworkLoop {
public:
    /// `trustedFile` holds certificates to trust beside the system's.
    explicit NetworkLoop(posix::EventLoop& loop, std::optional<std::filesystem::path> trustedFile = {})
        : loop_(loop), trustedFile_(std::move(trustedFile)) {}

    /// Made at the first call, which comes before run(). Throws base::Error if the certificates cannot be read.
    base::HttpClient& client();
    void run();
    /// Ends run().
    void quit();

private:
    posix::EventLoop& loop_;
    const std::optional<std::filesystem::path> trustedFile_;
    std::optional<QCoreApplication> application_;
    std::optional<qt::QtLoop> host_;
    std::optional<qt::QtHttpClient> client_;
};

}  // namespace tessivox::app
