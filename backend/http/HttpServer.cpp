#include "backend/http/HttpServer.h"

#include <httplib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <atomic>
#include <charconv>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "backend/http/Connection.h"
#include "backend/http/ConnectionPool.h"
#include "base/Log.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

constexpr int kLook = 500;  // milliseconds between looks for idle clients
constexpr const char* kBodyType = "Tessivox-Body-Type";
constexpr const char* kAnswerType = "application/json";

/// What the library reads from and writes to. An answer's head and body, which it writes one by one, leave together:
/// one system call less here, one waking less of the client.
class ConnectionStream final : public httplib::Stream {
public:
    explicit ConnectionStream(Connection& connection) : connection_(connection) {}
    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* bytes, std::size_t count) override { return flush() ? connection_.read(bytes, count) : -1; }
    ssize_t write(const char* bytes, std::size_t count) override {
        written_.append(bytes, count);
        return written_.size() < kMostHeld || flush() ? static_cast<ssize_t>(count) : -1;
    }
    /// Whether everything has been sent.
    bool flush() {
        for (std::string_view rest = written_; !rest.empty();) {
            const auto sent = connection_.write(rest.data(), rest.size());
            if (sent <= 0) return false;
            rest.remove_prefix(static_cast<std::size_t>(sent));
        }
        written_.clear();
        return true;
    }
    void get_remote_ip_and_port(std::string&, int&) const override {}
    void get_local_ip_and_port(std::string&, int&) const override {}
    socket_t socket() const override { return -1; }

private:
    static constexpr std::size_t kMostHeld = 64 * 1024;  // bytes
    Connection& connection_;
    std::string written_;
};

class LibraryRequest final : public HttpRequest {
public:
    LibraryRequest(const httplib::Request& request, const httplib::ContentReader* reader)
        : request_(request), reader_(reader) {}

    const std::string& method() const override { return request_.method; }
    const std::string& target() const override { return request_.target; }
    std::string header(const std::string& name) const override {
        return request_.get_header_value(name == "Content-Type" ? kBodyType : name);
    }
    bool hasHeader(const std::string& name) const override { return request_.has_header(name); }
    std::optional<std::uint64_t> bodyLength() const override {
        const auto text = request_.get_header_value("Content-Length");
        std::uint64_t length = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
        if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
        return length;
    }
    bool readBody(const BodySink& sink) const override {
        // Without either header the library would read until the client hangs up.
        const bool isChunked = request_.has_header("Transfer-Encoding");
        if (!reader_ || (!isChunked && !bodyLength())) return !request_.has_header("Content-Length");
        return (*reader_)([&](const char* bytes, std::size_t count) { return sink({bytes, count}); });
    }

private:
    const httplib::Request& request_;
    const httplib::ContentReader* reader_;
};

/// Prepares a request whose head has arrived; whether the connection ends with it.
bool prepare(httplib::Request& request) {
    // The library's own routes, its parsing of multipart bodies and its compression are not for us.
    request.path = "/";
    const auto type = request.get_header_value("Content-Type");
    for (const auto* name : {"Content-Type", "Content-Encoding", "Accept-Encoding", "Range", kBodyType}) {
        request.headers.erase(name);
    }
    request.ranges.clear();
    request.set_header(kBodyType, type);
    // Whether a body was read to its end or not: nothing of it is ever taken for a request.
    const bool hasBody = request.has_header("Content-Length") || request.has_header("Transfer-Encoding");
    if (!hasBody) return false;
    request.headers.erase("Connection");
    request.set_header("Connection", "close");
    return true;
}

void giveAnswer(const HttpAnswer& answer, httplib::Response& response) {
    response.status = answer.status;
    response.set_header("Cache-Control", "no-store");
    if (!answer.isCut) {
        response.set_content(answer.body, kAnswerType);
        return;
    }
    response.set_content_provider(answer.body.size(), kAnswerType,
                                  [body = answer.body](std::size_t, std::size_t, httplib::DataSink& sink) {
                                      sink.write(body.data(), body.size() / 2);
                                      return false;
                                  });
}

}  // namespace

/// The library's parser of requests and writer of answers, on our own connections.
class HttpServer::Front final : private httplib::Server {
public:
    Front(posix::Descriptor listener, std::optional<Tls> tls, HttpHandler handler)
        : listener_(std::move(listener)),
          stop_(::eventfd(0, EFD_CLOEXEC)),
          tls_(std::move(tls)),
          handler_(std::move(handler)) {
        if (!stop_) throw std::system_error(errno, std::generic_category(), "eventfd");
        svr_sock_ = listener_.get();  // which the library asks whether it may go on with an answer
        set_payload_max_length(SIZE_MAX);
        set_keep_alive_timeout(ConnectionPool::kKeepAlive.count());
        set_keep_alive_max_count(SIZE_MAX);
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            if (request.method == "POST") return HandlerResponse::Unhandled;
            answer(LibraryRequest(request, nullptr), response);
            return HandlerResponse::Handled;
        });
        Post("/", [this](const httplib::Request& request, httplib::Response& response,
                         const httplib::ContentReader& reader) { answer(LibraryRequest(request, &reader), response); });
        thread_ = std::thread([this] { accept(); });
    }
    ~Front() override {
        isStopping_ = true;
        const std::uint64_t one = 1;
        if (::write(stop_.get(), &one, sizeof one) < 0) base::log("Cannot wake the server's threads.");
        thread_.join();
    }

private:
    posix::Descriptor listener_;
    posix::Descriptor stop_;
    std::optional<Tls> tls_;
    HttpHandler handler_;
    std::atomic<bool> isStopping_ = false;
    ConnectionPool pool_{tls_ ? &*tls_ : nullptr, [this](Connection& connection) { return serve(connection); }};
    Connection::Clock::time_point nextLook_{};  ///< accepting thread
    std::thread thread_;

    /// Accepting thread.
    void accept() {
        pollfd fds[]{{listener_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        while (true) {
            posix::retry([&] { return ::poll(fds, 2, kLook); });
            if (fds[1].revents != 0) return;
            if (fds[0].revents != 0) acceptOne();
            hangUpOnIdle();
        }
    }
    void acceptOne() {
        posix::Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket) {
            pool_.add(std::move(socket));
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            pollfd stop{stop_.get(), POLLIN, 0};
            ::poll(&stop, 1, 10);  // until some of the connections have ended
        }
    }
    void hangUpOnIdle() {
        const auto now = Connection::Clock::now();
        if (now < nextLook_) return;
        pool_.hangUpOnIdle();
        nextLook_ = now + std::chrono::milliseconds(kLook);
    }
    /// Whether more requests may follow.
    bool serve(Connection& connection) {
        ConnectionStream stream(connection);
        bool isLast = isStopping_;
        bool hasBody = false;
        connection.beginHead();
        const bool isDone = process_request(stream, isLast, isLast, [&](httplib::Request& request) {
            connection.endHead();
            hasBody = prepare(request);
            if (hasBody) connection.mayTakeLong();
        });
        const bool isSent = stream.flush();
        if (hasBody) connection.linger();
        return isDone && isSent && !isLast && !hasBody;
    }
    void answer(const HttpRequest& request, httplib::Response& response) {
        try {
            giveAnswer(handler_(request), response);
        } catch (const std::exception& error) {
            base::log(std::string("A request failed: ") + error.what());
            giveAnswer({500, R"({"error":"The server failed; its log says why.","code":"internal"})"}, response);
        }
    }
};

HttpServer::HttpServer(posix::Descriptor listener, std::optional<Tls> tls, HttpHandler handler)
    : front_(std::make_unique<Front>(std::move(listener), std::move(tls), std::move(handler))) {}

HttpServer::~HttpServer() = default;

}  // namespace tessivox::backend
