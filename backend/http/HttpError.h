#pragma once

#include <string>

#include "base/Error.h"

namespace tessivox::backend {

/// Why a request is refused: the answer's status, a code for programs and a sentence for people.
class HttpError : public base::Error {
public:
    HttpError(int status, std::string code, std::string sentence)
        : Error("backend", status, std::move(sentence)), code_(std::move(code)) {}

    int status() const noexcept { return Error::code(); }
    const std::string& name() const noexcept { return code_; }

private:
    std::string code_;
};

}  // namespace tessivox::backend
