#include "backend/http/ConnectionPool.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "base/Log.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

posix::Descriptor checked(int fd, const char* what) {
    if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
    return posix::Descriptor(fd);
}

/// Enough for every processor while one of the threads waits for a lock or the disk.
std::ptrdiff_t seats() {
    return std::clamp<std::ptrdiff_t>(std::thread::hardware_concurrency() + 2, 4, ConnectionPool::kMostSeats);
}

}  // namespace

ConnectionPool::ConnectionPool(const Tls* tls, Serve serve)
    : tls_(tls),
      serve_(std::move(serve)),
      stop_(checked(::eventfd(0, EFD_CLOEXEC), "eventfd")),
      ready_(checked(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      seats_(seats()) {
    epoll_event event{EPOLLIN, {.ptr = nullptr}};
    if (::epoll_ctl(ready_.get(), EPOLL_CTL_ADD, stop_.get(), &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    for (std::size_t i = 0; i < kThreads; ++i) threads_.emplace_back([this] { work(); });
}

ConnectionPool::~ConnectionPool() {
    const std::uint64_t one = 1;
    if (::write(stop_.get(), &one, sizeof one) < 0) base::log("Cannot wake the server's threads.");
    for (auto& thread : threads_) thread.join();
}

void ConnectionPool::add(posix::Descriptor socket) {
    auto owned = std::make_unique<Client>(std::move(socket), tls_);
    auto& client = *owned;
    {
        const std::lock_guard lock(mutex_);
        clients_.emplace(&client, std::move(owned));
    }
    if (!arm(client, EPOLL_CTL_ADD)) drop(client);
}

void ConnectionPool::hangUpOnIdle() {
    const std::lock_guard lock(mutex_);
    const auto patience = clients_.size() > kCrowd ? kKeepAliveInCrowd : kKeepAlive;
    for (auto& [key, client] : clients_) {
        auto since = client->waitsSince.load();
        if (since == kBusy || Clock::now() - since < patience) continue;
        if (client->waitsSince.compare_exchange_strong(since, kBusy)) client->connection.hangUp();
    }
}

void ConnectionPool::work() {
    seats_.acquire();
    const auto serveNext = [this](int milliseconds) {
        auto* const client = next(milliseconds);
        if (client && !serve(*client)) seats_.acquire();
        return client != nullptr;
    };
    while (serveNext(-1)) {
    }
    // What else is ready comes before the order's second turn.
    while (serveNext(0)) {
    }
    seats_.release();
}

ConnectionPool::Client* ConnectionPool::next(int milliseconds) const {
    epoll_event event{};
    posix::retry([&] { return ::epoll_wait(ready_.get(), &event, 1, milliseconds); });
    return static_cast<Client*>(event.data.ptr);
}

bool ConnectionPool::serve(Client& client) {
    client.waitsSince = kBusy;
    auto& connection = client.connection;
    bool hasSeat = true;
    connection.setBeforeWaiting([&] {
        hasSeat = false;
        seats_.release();
    });
    bool goesOn = connection.isOpen() ? serve_(connection) : connection.open();
    while (goesOn && connection.holdsBytes()) goesOn = serve_(connection);
    connection.setBeforeWaiting({});
    if (goesOn) client.waitsSince = Clock::now();
    if (!goesOn || !arm(client, EPOLL_CTL_MOD)) drop(client);
    return hasSeat;
}

bool ConnectionPool::arm(Client& client, int operation) const {
    epoll_event event{EPOLLIN | EPOLLONESHOT, {.ptr = &client}};
    return ::epoll_ctl(ready_.get(), operation, client.connection.socket(), &event) == 0;
}

void ConnectionPool::drop(const Client& client) {
    const std::lock_guard lock(mutex_);
    clients_.erase(&client);
}

}  // namespace tessivox::backend
