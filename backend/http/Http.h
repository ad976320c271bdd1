#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tessivox::backend {

/// A request whose head has arrived. Lives as long as the handler's call.
class HttpRequest {
public:
    /// Takes the next bytes of a body; false: no more, please.
    using BodySink = std::function<bool(std::span<const char>)>;
    virtual ~HttpRequest() = default;

    virtual const std::string& method() const = 0;
    /// As it was sent, without any decoding: path and query.
    virtual const std::string& target() const = 0;
    /// Empty if there is none; the first if there are several.
    virtual std::string header(const std::string& name) const = 0;
    virtual bool hasHeader(const std::string& name) const = 0;
    /// What the client says that the body has, if it says so.
    virtual std::optional<std::uint64_t> bodyLength() const = 0;
    /// Hands the body over while it arrives. False if it broke off or the sink had enough. Once.
    virtual bool readBody(const BodySink& sink) const = 0;
};

struct HttpAnswer {
    int status = 200;
    std::string body = "{}";
    bool isCut = false;  ///< the connection ends in the middle of the body, for tests of clients
};

/// Any thread, many at a time.
using HttpHandler = std::function<HttpAnswer(const HttpRequest& request)>;

}  // namespace tessivox::backend
