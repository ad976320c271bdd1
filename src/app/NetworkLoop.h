#pragma once

#include <QCoreApplication>
#include <optional>

#include "base/ports/HttpClient.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "platform/linux/qt/QtLoop.h"

namespace tessivox::app {

/// The main loop, inside Qt's from when something wants to use the network. Main thread.
class NetworkLoop {
public:
    explicit NetworkLoop(posix::EventLoop& loop) : loop_(loop) {}

    /// Made at the first call, which comes before run().
    base::HttpClient& client();
    void run();
    /// Ends run().
    void quit();

private:
    posix::EventLoop& loop_;
    std::optional<QCoreApplication> application_;
    std::optional<qt::QtLoop> host_;
    std::optional<qt::QtHttpClient> client_;
};

}  // namespace tessivox::app
