#pragma once

#include <openssl/ssl.h>

#include <filesystem>
#include <memory>

namespace tessivox::backend {

/// A certificate and its key, ready to serve with. Any thread.
class Tls {
public:
    /// Throws base::Error with a sentence if they cannot be used.
    Tls(const std::filesystem::path& certificate, const std::filesystem::path& key);

    struct Close {
        void operator()(SSL* session) const { SSL_free(session); }
    };
    using Session = std::unique_ptr<SSL, Close>;
    /// A session on a connected socket whose handshake is done; none if the client did not manage it.
    Session accept(int socket) const;

private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    std::unique_ptr<SSL_CTX, Free> context_;
};

}  // namespace tessivox::backend
