#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace tessivox::backend {

/// The address of a service with OpenAI's interface, such as "https://api.example.com/v1".
class Endpoint {
public:
    /// `option` names the setting in the sentence of the EngineError that is thrown for any address but https, or http
    /// to this machine itself.
    Endpoint(std::string_view url, std::string_view option);

    /// "https://api.example.com", with the port if it was given.
    const std::string& origin() const { return origin_; }
    /// The path of an operation such as "/chat/completions". An address that ends with it already stays.
    std::string path(std::string_view operation) const;

private:
    std::string origin_;
    std::string path_;
};

struct PostLimits {
    std::chrono::milliseconds connect = std::chrono::seconds(10);
    std::chrono::milliseconds idle = std::chrono::seconds(60);  ///< between two bytes, either way
    std::chrono::milliseconds total = std::chrono::minutes(2);
    std::size_t answer = std::size_t{16} << 20U;  ///< bytes
};

struct PostAnswer {
    int status = 0;       ///< of HTTP; 0 if there is no whole answer
    std::string body;     ///< of an answer
    std::string failure;  ///< why there is none: a sentence
};

/// Throws EngineError, which names the variable, unless the key may stand in a header.
void checkKey(std::string_view key, std::string_view variable);

/// Sends a request and waits for its answer. The key, if there is one, goes to this origin only: a redirection is an
/// answer like any other. From its first use on this process ignores SIGPIPE.
PostAnswer post(const Endpoint& endpoint, std::string_view operation, const std::string& key,
                const std::string& contentType, std::string body, const PostLimits& limits);

/// What a service says about a failure in {"error": {"message"}} or {"error"}: one line, empty if it says nothing or
/// repeats the key.
std::string messageOf(const PostAnswer& answer, std::string_view key);

}  // namespace tessivox::backend
