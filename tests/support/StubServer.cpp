#include "support/StubServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace tessivox::testing {
namespace {

void check(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
}

std::size_t promisedBody(std::string_view head) {
    const auto at = head.find("ontent-Length: ");
    return at == head.npos ? 0 : std::stoul(std::string(head.substr(at + 15)));
}

void sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto put = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (put <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
}

}  // namespace

StubServer::Answer StubServer::status(int code, const std::string& headers, const std::string& body) {
    return {"HTTP/1.1 " + std::to_string(code) + " Word\r\nConnection: close\r\nContent-Length: " +
            std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body};
}

StubServer::StubServer(std::uint16_t port)
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), stop_(::eventfd(0, EFD_CLOEXEC)) {
    const int yes = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    check(::bind(listener_, plain, sizeof address), "bind");
    check(::listen(listener_, 16), "listen");
    socklen_t size = sizeof address;
    check(::getsockname(listener_, plain, &size), "getsockname");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

StubServer::~StubServer() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto put = ::write(stop_, &one, sizeof one);
    thread_.join();
    ::close(listener_);
    ::close(stop_);
}

std::string StubServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void StubServer::willAnswer(Answer answer) {
    const std::lock_guard guard(mutex_);
    answers_.push_back(std::move(answer));
}

void StubServer::willAlwaysAnswer(Answer answer) {
    const std::lock_guard guard(mutex_);
    usual_ = std::move(answer);
}

std::vector<std::string> StubServer::requests() const {
    const std::lock_guard guard(mutex_);
    return requests_;
}

std::size_t StubServer::hangUps() const {
    const std::lock_guard guard(mutex_);
    return hangUps_;
}

std::size_t StubServer::unreadRequests() const {
    const std::lock_guard guard(mutex_);
    return unreadRequests_;
}

void StubServer::serve() {
    std::vector<std::thread> conversations;
    while (isReadable(listener_)) {
        const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        conversations.emplace_back([this, connection] {
            converse(connection);
            ::close(connection);
        });
    }
    for (auto& conversation : conversations) conversation.join();
}

/// With the lock held.
StubServer::Answer StubServer::takeAnswer() {
    if (answers_.empty()) return usual_;
    auto answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
}

/// The next answer, if it is a reset.
std::optional<StubServer::Answer> StubServer::takeReset() {
    const std::lock_guard guard(mutex_);
    const auto& next = answers_.empty() ? usual_ : answers_.front();
    if (!next.resetAfter) return std::nullopt;
    return takeAnswer();
}

void StubServer::breakOff(int connection, const Answer& answer) {
    std::array<char, 4096> buffer;
    for (std::size_t got = 0; got < *answer.resetAfter && isReadable(connection);) {
        const auto count = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (count <= 0) break;  // The client gave up in the middle: it was a request all the same.
        got += static_cast<std::size_t>(count);
    }
    std::unique_lock lock(mutex_);
    ++unreadRequests_;
    lock.unlock();
    if (answer.isHeld) isReadable(stop_);
    const linger none{1, 0};  // closing resets; see socket(7)
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

/// Until the client hangs up, or the server is to stop.
void StubServer::send(int connection, std::string_view bytes, std::chrono::milliseconds pace) {
    if (pace.count() == 0) return sendAll(connection, bytes);
    const auto body = std::min(bytes.find("\r\n\r\n"), bytes.size() - 4) + 4;
    sendAll(connection, bytes.substr(0, body));
    std::array<char, 4096> rest;
    for (const char byte : bytes.substr(body)) {
        if (::send(connection, &byte, 1, MSG_NOSIGNAL) <= 0) return;
        if (!isReadable(connection, static_cast<int>(pace.count()))) {
            if (isStopping()) return;
            continue;
        }
        if (::recv(connection, rest.data(), rest.size(), MSG_DONTWAIT) <= 0) return;
    }
}

void StubServer::converse(int connection) {
    if (!isRequested(connection)) return;
    if (const auto reset = takeReset()) return breakOff(connection, *reset);
    auto request = readRequest(connection);
    if (request.empty()) return;
    std::unique_lock lock(mutex_);
    requests_.push_back(std::move(request));
    const auto answer = takeAnswer();
    lock.unlock();
    send(connection, answer.bytes, answer.pace);
    std::array<char, 4096> rest;
    while (answer.isHeld && isReadable(connection)) {
        if (::recv(connection, rest.data(), rest.size(), 0) > 0) continue;
        lock.lock();
        ++hangUps_;
        return;
    }
}

/// False once the server is to stop, or after so many milliseconds.
bool StubServer::isReadable(int fd, int limit) const {
    std::array<pollfd, 2> waiting{pollfd{fd, POLLIN, 0}, pollfd{stop_, POLLIN, 0}};
    return ::poll(waiting.data(), waiting.size(), limit) > 0 && waiting[1].revents == 0;
}

/// A client may connect and hang up without a word; that takes no answer from a later request.
bool StubServer::isRequested(int connection) const {
    char first;
    return isReadable(connection) && ::recv(connection, &first, 1, MSG_PEEK) > 0;
}

bool StubServer::isStopping() const {
    pollfd waiting{stop_, POLLIN, 0};
    return ::poll(&waiting, 1, 0) > 0;
}

/// Empty if the client hung up first.
std::string StubServer::readRequest(int connection) const {
    std::string request;
    std::array<char, 65536> buffer;
    std::size_t size = std::string::npos;  // known once the head is there
    while (request.size() < size) {
        if (!isReadable(connection)) return {};
        const auto got = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (got <= 0) return {};
        request.append(buffer.data(), static_cast<std::size_t>(got));
        const bool isHttp = request.front() >= 'A' && request.front() <= 'Z';
        if (!isHttp) break;  // a TLS greeting, say
        if (size != request.npos) continue;
        if (const auto head = request.find("\r\n\r\n"); head != request.npos) {
            size = head + 4 + promisedBody(request.substr(0, head));
        }
    }
    return request;
}

}  // namespace tessivox::testing
