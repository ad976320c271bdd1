#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "backend/http/Http.h"
#include "backend/http/Tls.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::backend {

/// Answers HTTP requests on a listening socket, from threads of its own. Made and destroyed on the main thread.
class HttpServer {
public:
    /// Begins at once. The socket is never shut down, so that another process that has it may go on with it.
    HttpServer(posix::Descriptor listener, std::optional<Tls> tls, HttpHandler handler);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    /// Takes no more requests and returns when what has been asked is answered.
    ~HttpServer();

private:
    class Front;
    std::unique_ptr<Front> front_;
};

}  // namespace tessivox::backend
