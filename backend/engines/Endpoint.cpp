#include "backend/engines/Endpoint.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stop_token>
#include <thread>

#include "backend/engines/EngineError.h"
#include "backend/engines/Utf8.h"

namespace tessivox::backend {
namespace {

using namespace std::chrono_literals;

bool isPlain(char c) { return c > ' ' && c < 0x7F; }

/// A number of up to three digits as in an IPv4 address.
bool takeOctet(std::string_view& text) {
    unsigned number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto size = static_cast<std::size_t>(end.ptr - text.data());
    text.remove_prefix(size);
    return end.ec == std::errc() && size <= 3 && number < 256;
}

/// "127.x.y.z", "localhost" or "[::1]": this machine, whatever any name service says.
bool isLoopback(std::string_view host) {
    if (host == "localhost" || host == "[::1]") return true;
    if (!host.starts_with("127.")) return false;
    host.remove_prefix(4);
    for (int dots = 2;; --dots) {
        if (!takeOctet(host)) return false;
        if (dots == 0) return host.empty();
        if (!host.starts_with('.')) return false;
        host.remove_prefix(1);
    }
}

bool isPort(std::string_view port) {
    unsigned number = 0;
    const auto end = std::from_chars(port.data(), port.data() + port.size(), number);
    return end.ec == std::errc() && end.ptr == port.data() + port.size() && number >= 1 && number <= 65535;
}

bool isHost(std::string_view host) {
    if (host == "[::1]") return true;
    constexpr std::string_view kAlso = ".-_";
    return !host.empty() && std::ranges::all_of(host, [&](unsigned char c) {
        return std::isalnum(c) != 0 || kAlso.find(static_cast<char>(c)) != kAlso.npos;
    });
}

/// Ends a request that takes longer than it may, however it passes its time.
class Deadline {
public:
    Deadline(httplib::Client& client, std::chrono::milliseconds limit)
        : thread_([this, &client, limit](const std::stop_token& over) { watch(client, limit, over); }) {}

    bool hasPassed() const { return hasPassed_; }

private:
    std::atomic<bool> hasPassed_ = false;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::jthread thread_;

    void watch(httplib::Client& client, std::chrono::milliseconds limit, const std::stop_token& over) {
        std::unique_lock lock(mutex_);
        auto wait = limit;
        while (true) {
            wake_.wait_for(lock, over, wait, [] { return false; });
            if (over.stop_requested()) return;
            hasPassed_ = true;
            client.stop();  // without effect between two steps of a request, so again soon
            wait = 20ms;
        }
    }
};

std::string failureOf(httplib::Error error, const std::string& origin) {
    using httplib::Error;
    if (error == Error::Connection || error == Error::BindIPAddress) {
        return "Cannot reach " + origin + ". Check the address and the network.";
    }
    if (error == Error::SSLConnection || error == Error::SSLLoadingCerts || error == Error::SSLServerVerification) {
        return "Cannot trust " + origin + ": its certificate does not hold. Check the address.";
    }
    return "The connection to " + origin + " broke. Try again.";
}

}  // namespace

Endpoint::Endpoint(std::string_view url, std::string_view option) {
    const auto refuse = [&] {
        throw EngineError("The address for " + std::string(option) +
                          " must be like https://api.example.com/v1, or http:// to this machine.");
    };
    const auto separator = url.find("://");
    if (separator == url.npos || !std::ranges::all_of(url, isPlain) || url.find_first_of("?#@\\") != url.npos) refuse();
    const auto scheme = lowered(url.substr(0, separator));
    const auto rest = url.substr(separator + 3);
    const auto slash = std::min(rest.find('/'), rest.size());
    auto host = lowered(rest.substr(0, slash));
    path_ = rest.substr(slash);
    while (path_.ends_with('/')) path_.pop_back();
    origin_ = scheme + "://" + host;
    if (const auto colon = host.rfind(':'); colon != host.npos && !host.ends_with(']')) {
        if (!isPort(std::string_view(host).substr(colon + 1))) refuse();
        host.resize(colon);
    }
    if (!isHost(host) || !(scheme == "https" || (scheme == "http" && isLoopback(host)))) refuse();
}

std::string Endpoint::path(std::string_view operation) const {
    return path_.ends_with(operation) ? path_ : path_ + std::string(operation);
}

void checkKey(std::string_view key, std::string_view variable) {
    if (std::ranges::all_of(key, isPlain)) return;
    throw EngineError("The key in " + std::string(variable) + " holds blanks or odd characters. Set it again.");
}

PostAnswer post(const Endpoint& endpoint, std::string_view operation, const std::string& key,
                const std::string& contentType, std::string body, const PostLimits& limits) {
    [[maybe_unused]] static const auto ignored = std::signal(SIGPIPE, SIG_IGN);
    httplib::Client client(endpoint.origin());
    client.set_connection_timeout(limits.connect);
    client.set_read_timeout(limits.idle);
    client.set_write_timeout(limits.idle);
    client.set_follow_location(false);
    httplib::Request request;
    request.method = "POST";
    request.path = endpoint.path(operation);
    request.headers = {{"Content-Type", contentType}, {"Accept", "application/json"}};
    if (!key.empty()) request.headers.emplace("Authorization", "Bearer " + key);
    request.body = std::move(body);
    PostAnswer answer;
    bool isTooLarge = false;
    request.content_receiver = [&](const char* bytes, std::size_t size, std::uint64_t, std::uint64_t) {
        isTooLarge = answer.body.size() + size > limits.answer;
        if (!isTooLarge) answer.body.append(bytes, size);
        return !isTooLarge;
    };
    const Deadline deadline(client, limits.total);
    const auto result = client.send(request);
    if (result && !isTooLarge && !deadline.hasPassed()) {
        answer.status = result->status;
        return answer;
    }
    if (isTooLarge) return {0, {}, endpoint.origin() + " sent more than it should. Check the address."};
    if (deadline.hasPassed()) return {0, {}, endpoint.origin() + " took too long to answer. Try again later."};
    return {0, {}, failureOf(result.error(), endpoint.origin())};
}

std::string messageOf(const PostAnswer& answer, std::string_view key) {
    using Json = nlohmann::json;
    const auto document = Json::parse(answer.body.substr(0, 65536), nullptr, false);
    if (!document.is_object() || !document.contains("error")) return {};
    const auto& error = document["error"];
    const auto* text = error.is_object() && error.contains("message") ? &error["message"] : &error;
    if (!text->is_string()) return {};
    auto message = briefLine(text->get_ref<const std::string&>(), 300);
    return !key.empty() && message.find(key) != message.npos ? std::string() : message;
}

}  // namespace tessivox::backend
