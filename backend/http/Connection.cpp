#include "backend/http/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

constexpr std::chrono::seconds kLinger{2};
constexpr std::size_t kMostLingering = 16 << 20;  // bytes

void limitWaiting(int socket, std::chrono::seconds time) {
    const timeval limit{time.count(), 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int atMostInt(std::size_t count) { return static_cast<int>(std::min<std::size_t>(count, INT_MAX)); }

}  // namespace

Connection::Connection(posix::Descriptor socket, const Tls* tls) : socket_(std::move(socket)), tls_(tls) {
    const int on = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    limitWaiting(socket_.get(), kPatience);
    if (tls_) session_ = tls_->accept(socket_.get());
}

bool Connection::waitForRequest(int stop, std::chrono::milliseconds time) {
    if (begin_ < end_ || (session_ && SSL_pending(session_.get()) > 0)) return true;
    pollfd fds[]{{socket_.get(), POLLIN, 0}, {stop, POLLIN, 0}};
    if (posix::retry([&] { return ::poll(fds, 2, static_cast<int>(time.count())); }) <= 0) return false;
    return fds[0].revents != 0;
}

void Connection::beginHead() {
    isInHead_ = true;
    headBytes_ = 0;
    headEnd_ = Clock::now() + kPatience;
}

ssize_t Connection::read(char* bytes, std::size_t count) {
    if (begin_ == end_) {
        if (isInHead_ && Clock::now() > headEnd_) return -1;
        const auto received = receive(buffer_.data(), buffer_.size());
        if (received <= 0) return received;
        begin_ = 0;
        end_ = static_cast<std::size_t>(received);
    }
    count = std::min(count, end_ - begin_);
    if (isInHead_ && (headBytes_ += count) > kLongestHead) return -1;
    std::memcpy(bytes, buffer_.data() + begin_, count);
    begin_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::receive(char* bytes, std::size_t count) {
    if (!session_) return posix::retry([&] { return ::recv(socket_.get(), bytes, count, 0); });
    const int received = SSL_read(session_.get(), bytes, atMostInt(count));
    ERR_clear_error();
    return received;
}

ssize_t Connection::write(const char* bytes, std::size_t count) {
    if (!session_) return posix::retry([&] { return ::send(socket_.get(), bytes, count, MSG_NOSIGNAL); });
    const int sent = SSL_write(session_.get(), bytes, atMostInt(count));
    ERR_clear_error();
    return sent;
}

void Connection::linger() {
    if (session_) SSL_shutdown(session_.get());
    ERR_clear_error();
    ::shutdown(socket_.get(), SHUT_WR);
    limitWaiting(socket_.get(), kLinger);
    const auto end = Clock::now() + kLinger;
    std::size_t total = 0;
    ssize_t count = 1;
    while (count > 0 && total < kMostLingering && Clock::now() < end) {
        count = posix::retry([&] { return ::recv(socket_.get(), buffer_.data(), buffer_.size(), 0); });
        total += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
}

}  // namespace tessivox::backend
