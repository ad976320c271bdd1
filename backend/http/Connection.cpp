#include "backend/http/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

constexpr std::chrono::seconds kLinger{2};

void limitWaiting(int socket, std::chrono::seconds time) {
    const timeval limit{time.count(), 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

/// At once if possible; otherwise it waits, about which it says so before.
template <typename Call, typename Warn>
ssize_t withoutWaiting(const Call& call, const Warn& warn) {
    const auto result = posix::retry([&] { return call(MSG_DONTWAIT); });
    if (result >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) return result;
    warn();
    return posix::retry([&] { return call(0); });
}

int atMostInt(std::size_t count) { return static_cast<int>(std::min<std::size_t>(count, INT_MAX)); }

}  // namespace

Connection::Connection(posix::Descriptor socket, const Tls* tls) : socket_(std::move(socket)), tls_(tls) {
    const int on = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    limitWaiting(socket_.get(), kPatience);
}

bool Connection::open() {
    mayTakeLong();
    session_ = tls_->accept(socket_.get());
    return isOpen();
}

void Connection::hangUp() const { ::shutdown(socket_.get(), SHUT_RDWR); }

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

void Connection::mayTakeLong() {
    if (const auto action = std::exchange(beforeWaiting_, {})) action();
}

ssize_t Connection::receive(char* bytes, std::size_t count) {
    if (!session_) {
        const auto receive = [&](int flags) { return ::recv(socket_.get(), bytes, count, flags); };
        return withoutWaiting(receive, [&] { mayTakeLong(); });
    }
    mayTakeLong();
    const int received = SSL_read(session_.get(), bytes, atMostInt(count));
    ERR_clear_error();
    return received;
}

ssize_t Connection::write(const char* bytes, std::size_t count) {
    if (!session_) {
        const auto send = [&](int flags) { return ::send(socket_.get(), bytes, count, MSG_NOSIGNAL | flags); };
        return withoutWaiting(send, [&] { mayTakeLong(); });
    }
    mayTakeLong();
    const int sent = SSL_write(session_.get(), bytes, atMostInt(count));
    ERR_clear_error();
    return sent;
}

void Connection::linger() {
    mayTakeLong();
    if (session_) SSL_shutdown(session_.get());
    ERR_clear_error();
    ::shutdown(socket_.get(), SHUT_WR);
    limitWaiting(socket_.get(), kLinger);
    const auto end = Clock::now() + kLinger;
    ssize_t count = 1;
    while (count > 0 && Clock::now() < end) {
        count = posix::retry([&] { return ::recv(socket_.get(), buffer_.data(), buffer_.size(), 0); });
    }
}

}  // namespace tessivox::backend
