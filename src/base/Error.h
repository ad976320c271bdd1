#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace tessivox::base {

/// What a user must hear of. Closed error types derive from it and fix domain and code.
class Error : public std::exception {
public:
    Error(std::string domain, int code, std::string description)
        : domain_(std::move(domain)), description_(std::move(description)), code_(code) {}

    const char* what() const noexcept override { return description_.c_str(); }
    /// A sentence for the user, UTF-8.
    const std::string& description() const noexcept { return description_; }
    const std::string& domain() const noexcept { return domain_; }
    int code() const noexcept { return code_; }

private:
    std::string domain_;
    std::string description_;
    int code_;
};

/// The user's sentence for whatever was caught.
std::string describe(const std::exception_ptr& error);

}  // namespace tessivox::base
