#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <utility>

#include "backend/http/Tls.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::backend {

/// A client's connection, with or without TLS. Calls block, no longer than kPatience each. One thread.
class Connection {
public:
    using Clock = std::chrono::steady_clock;
    /// How long a client may be silent in the middle of something, and how long a request's head may take.
    static constexpr std::chrono::seconds kPatience{30};
    static constexpr std::size_t kLongestHead = 64 * 1024;  ///< bytes of a request's first line and header

    /// `tls` outlives it; null without TLS.
    Connection(posix::Descriptor socket, const Tls* tls);

    int socket() const { return socket_.get(); }
    /// Whether there is a TLS session, if there has to be one.
    bool isOpen() const { return !tls_ || session_; }
    /// Begins the TLS session; false if the client does not manage it.
    bool open();
    /// Whether something that has been taken from the socket is not yet read.
    bool holdsBytes() const { return begin_ < end_ || (session_ && SSL_pending(session_.get()) > 0); }
    /// The client is to find the connection ended; so does who waits for it here. Any thread.
    void hangUp() const;
    /// What to call before a call may have to wait, or an answer may take long: once, at most. Empty for nothing.
    void setBeforeWaiting(std::function<void()> action) { beforeWaiting_ = std::move(action); }
    void mayTakeLong();
    /// From here to endHead() the bounds of a request's head hold.
    void beginHead();
    void endHead() { isInHead_ = false; }

    /// Like recv(2) and send(2): 0 at the client's end, negative on failure.
    ssize_t read(char* bytes, std::size_t count);
    ssize_t write(const char* bytes, std::size_t count);

    /// Ends the answer, then takes what the client still sends for a moment: a socket that is closed with bytes unread
    /// is reset, and the client may lose the answer.
    void linger();

private:
    posix::Descriptor socket_;
    const Tls* tls_;
    Tls::Session session_;
    std::array<char, 16 * 1024> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool isInHead_ = false;
    std::size_t headBytes_ = 0;
    Clock::time_point headEnd_;
    std::function<void()> beforeWaiting_;

    ssize_t receive(char* bytes, std::size_t count);
};

}  // namespace tessivox::backend
