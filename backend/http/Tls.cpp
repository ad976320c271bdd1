#include "backend/http/Tls.h"

#include <openssl/err.h>

#include "base/Error.h"

namespace tessivox::backend {
namespace {

[[noreturn]] void refuse(const char* what, const std::filesystem::path& file) {
    ERR_clear_error();
    throw base::Error("backend", 1,
                      std::string("Cannot use the ") + what + " \"" + file.string() +
                          "\"; give a PEM file that this user can read, and a key that fits.");
}

}  // namespace

Tls::Tls(const std::filesystem::path& certificate, const std::filesystem::path& key)
    : context_(SSL_CTX_new(TLS_server_method())) {
    SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
    if (SSL_CTX_use_certificate_chain_file(context_.get(), certificate.c_str()) != 1) {
        refuse("certificate", certificate);
    }
    if (SSL_CTX_use_PrivateKey_file(context_.get(), key.c_str(), SSL_FILETYPE_PEM) != 1) refuse("key", key);
}

Tls::Session Tls::accept(int socket) const {
    Session session(SSL_new(context_.get()));
    if (session && SSL_set_fd(session.get(), socket) == 1 && SSL_accept(session.get()) == 1) return session;
    ERR_clear_error();
    return nullptr;
}

}  // namespace tessivox::backend
