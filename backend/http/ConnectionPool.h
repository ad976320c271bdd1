#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/http/Connection.h"
#include "backend/http/Tls.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::backend {

/// Clients' connections and the threads that serve them. One that waits for its client's next request takes no thread.
/// Requests are begun in the order in which they came, and only a few threads have seats and run at a time: among
/// hundreds of running threads one that is interrupted would wait long, and its client with it. A thread whose client
/// keeps it waiting leaves its seat to another.
class ConnectionPool {
public:
    static constexpr std::size_t kThreads = 256;  ///< as many requests at a time
    static constexpr std::ptrdiff_t kMostSeats = 64;
    static constexpr std::size_t kCrowd = 512;  ///< with more connections than that, none is kept open for long
    static constexpr std::chrono::seconds kKeepAlive{15};
    static constexpr std::chrono::seconds kKeepAliveInCrowd{1};

    /// Serves one request; whether more may follow. Any thread, each connection in one at a time.
    using Serve = std::function<bool(Connection& connection)>;

    /// `tls` outlives it; null without TLS. Throws std::system_error.
    ConnectionPool(const Tls* tls, Serve serve);
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;
    /// Returns when every request that has come is answered.
    ~ConnectionPool();

    void add(posix::Descriptor socket);
    /// Hangs up on clients who have not asked anything for too long. To be called now and then.
    void hangUpOnIdle();

private:
    using Clock = Connection::Clock;
    struct Client {
        explicit Client(posix::Descriptor socket, const Tls* tls) : connection(std::move(socket), tls) {}
        Connection connection;
        /// Of no meaning while a thread has it, which kBusy says.
        std::atomic<Clock::time_point> waitsSince = Clock::now();
    };
    static constexpr Clock::time_point kBusy = Clock::time_point::max();

    const Tls* tls_;
    const Serve serve_;
    const posix::Descriptor stop_;
    const posix::Descriptor ready_;  ///< tells of each connection once, then it has to be armed again
    std::mutex mutex_;
    std::unordered_map<const Client*, std::unique_ptr<Client>> clients_;
    std::counting_semaphore<kMostSeats> seats_;
    std::vector<std::thread> threads_;

    void work();
    /// One whose request has come, for the calling thread alone; null for the order to stop.
    Client* next(int milliseconds) const;
    /// Whether the thread still has its seat.
    bool serve(Client& client);
    /// Whether it is told of when its client sends something.
    bool arm(Client& client, int operation) const;
    void drop(const Client& client);
};

}  // namespace tessivox::backend
