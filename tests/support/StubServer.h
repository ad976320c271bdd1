#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tessivox::testing {

/// A server on 127.0.0.1 that writes down each request and answers with the bytes it was given, right or wrong. One
/// request a connection. Any thread.
class StubServer {
public:
    struct Answer {
        std::string bytes;
        bool isHeld = false;  ///< afterwards the connection stays open until the client hangs up
        /// Read so much of the request and no more, then reset the connection; or, if held, leave the rest unread until
        /// the server ends. Such a request is not written down, only counted.
        std::optional<std::size_t> resetAfter{};
        /// The time between two bytes of the body; zero sends them at once.
        std::chrono::milliseconds pace{};
    };
    static Answer status(int code, const std::string& headers = {}, const std::string& body = {});

    /// On a free port, or on this one.
    explicit StubServer(std::uint16_t port = 0);
    StubServer(const StubServer&) = delete;
    StubServer& operator=(const StubServer&) = delete;
    ~StubServer();

    std::uint16_t port() const { return port_; }
    std::string url(const std::string& path = "/") const;
    /// For the next request that has none yet; without one it is 200.
    void willAnswer(Answer answer);
    /// For all requests that nothing else is said for.
    void willAlwaysAnswer(Answer answer);
    /// Whole requests, as they came.
    std::vector<std::string> requests() const;
    std::size_t hangUps() const;
    /// How many requests were not read to their ends.
    std::size_t unreadRequests() const;

    static std::string bodyOf(const std::string& request) { return request.substr(request.find("\r\n\r\n") + 4); }

private:
    int listener_;
    int stop_;
    std::uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::deque<Answer> answers_;
    Answer usual_ = status(200);
    std::vector<std::string> requests_;
    std::size_t hangUps_ = 0;
    std::size_t unreadRequests_ = 0;
    std::thread thread_;

    void serve();
    void converse(int connection);
    bool isReadable(int fd, int limit = -1) const;
    bool isRequested(int connection) const;
    bool isStopping() const;
    std::string readRequest(int connection) const;
    void breakOff(int connection, const Answer& answer);
    void send(int connection, std::string_view bytes, std::chrono::milliseconds pace);
    Answer takeAnswer();
    std::optional<Answer> takeReset();
};

}  // namespace tessivox::testing
