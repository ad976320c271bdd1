#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tessivox::testing {

/// A certificate for 127.0.0.1 that nobody trusts, and its key, made by the program openssl.
struct Certificate {
    std::filesystem::path certificate;
    std::filesystem::path key;

    explicit Certificate(const std::filesystem::path& folder)
        : certificate(folder / "certificate.pem"), key(folder / "key.pem") {
        const auto command =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=test"
            " -addext subjectAltName=IP:127.0.0.1 -keyout '" +
            key.string() + "' -out '" + certificate.string() + "' 2>/dev/null";
        if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl makes no certificate");
    }
};

}  // namespace tessivox::testing
