// The local server: many clients that ask for their job's state again and again, against the bare library in the same
// run, and one large upload.
//   bench_backend [--smoke] [--seconds N] [--megabytes N]
#include <httplib.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "base/Text.h"
#include "support/BackendProcess.h"

namespace tessivox::bench {
namespace {

using Clock = std::chrono::steady_clock;
using testing::BackendProcess;

constexpr std::size_t kClients = 200;
constexpr double kWantedRate = 20'000;   // answers a second
constexpr double kSlowestAllowed = 250;  // ms
constexpr double kMemoryAllowed = 64;    // MB
constexpr int kRounds = 5;
constexpr std::size_t kPiece = 1024 * 1024;  // bytes

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// A connection that asks again as soon as it is answered.
struct Poller {
    int socket = -1;
    std::string answer;
    Clock::time_point asked;
    std::uint64_t answers = 0;

    void ask(const std::string& request) {
        asked = Clock::now();
        if (::send(socket, request.data(), request.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("send");
    }
    /// Whether the answer is whole.
    bool take() {
        std::array<char, 4096> bytes;
        const auto count = ::recv(socket, bytes.data(), bytes.size(), 0);
        if (count <= 0) throw std::runtime_error("The server hung up on a client.");
        answer.append(bytes.data(), static_cast<std::size_t>(count));
        if (!answer.ends_with('}')) return false;
        if (!answer.starts_with("HTTP/1.1 200")) throw std::runtime_error("The server answered: " + answer);
        answer.clear();
        ++answers;
        return true;
    }
};

struct Polling {
    double rate = 0;     ///< answers a second
    double slowest = 0;  ///< milliseconds
    std::uint64_t unserved = 0;
};

class Crowd {
public:
    Crowd(std::uint16_t port, std::string request) : request_(std::move(request)), epoll_(::epoll_create1(0)) {
        for (auto& poller : pollers_) {
            poller.socket = testing::connectTo(port);
            epoll_event event{EPOLLIN, {.ptr = &poller}};
            ::epoll_ctl(epoll_, EPOLL_CTL_ADD, poller.socket, &event);
        }
    }
    ~Crowd() {
        for (const auto& poller : pollers_) ::close(poller.socket);
        ::close(epoll_);
    }

    Polling run(double seconds) {
        const auto start = Clock::now();
        for (auto& poller : pollers_) poller.ask(request_);
        while (secondsSince(start) < seconds) turn();
        Polling result;
        for (const auto& poller : pollers_) {
            result.rate += static_cast<double>(poller.answers) / seconds;
            result.unserved += poller.answers == 0 ? 1 : 0;
            slowest_ = std::max(slowest_, secondsSince(poller.asked));
        }
        result.slowest = slowest_ * 1000;
        return result;
    }

private:
    const std::string request_;
    std::array<Poller, kClients> pollers_;
    int epoll_;
    double slowest_ = 0;

    void turn() {
        std::array<epoll_event, 64> events{};
        const int count = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 1000);
        for (int i = 0; i < count; ++i) {
            auto& poller = *static_cast<Poller*>(events[static_cast<std::size_t>(i)].data.ptr);
            if (!poller.take()) continue;
            slowest_ = std::max(slowest_, secondsSince(poller.asked));
            poller.ask(request_);
        }
    }
};

/// The library that the server is built on, by itself: with threads and room for all clients, who would be refused
/// otherwise, and an answer that is ready.
class PlainServer : private httplib::Server {
public:
    explicit PlainServer(const std::string& body) {
        new_task_queue = [] { return new httplib::ThreadPool(kClients + 56); };
        set_keep_alive_max_count(SIZE_MAX);
        set_tcp_nodelay(true);
        Get(".*", [body](const httplib::Request&, httplib::Response& response) {
            response.set_content(body, "application/json");
        });
        port_ = static_cast<std::uint16_t>(bind_to_any_port("127.0.0.1"));
        ::listen(svr_sock_, 512);
        thread_ = std::thread([this] { listen_after_bind(); });
    }
    ~PlainServer() override {
        stop();
        thread_.join();
    }
    std::uint16_t port() const { return port_; }

private:
    std::uint16_t port_ = 0;
    std::thread thread_;
};

/// The most memory that a process has had, in megabytes.
double peakMemory(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
    }
    throw std::runtime_error("The server is gone.");
}

void send(int socket, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const auto count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) throw std::runtime_error("The server hung up on an upload.");
        sent += static_cast<std::size_t>(count);
    }
}

void upload(const BackendProcess& server, std::size_t megabytes) {
    const auto frame = BackendProcess::multipart("B0UND", "", "a.m4a");
    const auto middle = frame.find("\r\n\r\n") + 4;
    const auto length = frame.size() + megabytes * kPiece;
    const int socket = testing::connectTo(server.port());
    send(socket, server.request("POST", "/transcribe/submit",
                                {{"Content-Type", "multipart/form-data; boundary=B0UND"},
                                 {"Content-Length", std::to_string(length)}}) +
                     frame.substr(0, middle));
    std::string piece(kPiece, '\0');
    for (std::size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>(i * 2654435761U >> 13);
    for (std::size_t i = 0; i < megabytes; ++i) send(socket, piece);
    send(socket, frame.substr(middle));
    std::array<char, 4096> answer{};
    if (::recv(socket, answer.data(), answer.size(), 0) <= 0 ||
        !std::string_view(answer.data()).starts_with("HTTP/1.1 200")) {
        throw std::runtime_error(std::string("The upload was answered: ") + answer.data());
    }
    ::close(socket);
}

struct Turns {
    std::vector<double> rates, peerRates;
    double slowest = 0, peerSlowest = 0;
    std::uint64_t unserved = 0;
};

/// By turns, so that a busy moment of the machine hits both.
Turns poll(const BackendProcess& server, double seconds, int rounds) {
    const auto id = nlohmann::json::parse(server.upload("sound").body).value("task_id", "");
    const auto request = server.request("GET", "/transcribe/status/" + id, {});
    const auto body = server.get("/transcribe/status/" + id).body;
    Turns turns;
    for (int round = 0; round < rounds; ++round) {
        const auto ours = Crowd(server.port(), request).run(seconds / rounds);
        turns.rates.push_back(ours.rate);
        turns.slowest = std::max(turns.slowest, ours.slowest);
        turns.unserved += ours.unserved;
        const PlainServer plain(body);
        const auto theirs = Crowd(plain.port(), request).run(seconds / rounds);
        turns.peerRates.push_back(theirs.rate);
        turns.peerSlowest = std::max(turns.peerSlowest, theirs.slowest);
    }
    return turns;
}

void reportUpload(Report& report, const BackendProcess& server, std::size_t megabytes) {
    const auto start = Clock::now();
    upload(server, megabytes);
    const double took = secondsSince(start);
    report.atMost("upload of " + std::to_string(megabytes) + " MB, the server's memory", kMemoryAllowed,
                  peakMemory(server.pid()), "MB");
    report.note("  it took " + base::fixedNumber(took, 1) + " s");
}

void reportPolling(Report& report, const BackendProcess& server, double seconds, int rounds) {
    const auto turns = poll(server, seconds, rounds);
    constexpr const char* kPeer = "cpp-httplib alone, a thread for each";
    report.atMost("clients of 200 that were never served", 0, static_cast<double>(turns.unserved), "");
    report.atLeast("answers to 200 clients", kWantedRate, median(turns.rates), "/s");
    report.peer(kPeer, median(turns.rates), median(turns.peerRates), "/s");
    report.atMost("the slowest of them", kSlowestAllowed, turns.slowest, "ms");
    report.peer(kPeer, turns.slowest, turns.peerSlowest, "ms");
    report.atMost("the server's memory then", kMemoryAllowed, peakMemory(server.pid()), "MB");
}

int run(const Arguments& arguments) {
    const bool isSmoke = arguments.isSmoke();
    const double seconds = arguments.number("--seconds", isSmoke ? 0.5 : 10);
    const auto megabytes = static_cast<std::size_t>(arguments.number("--megabytes", isSmoke ? 20 : 500));
    const TemporaryFolder folder;
    BackendProcess server(
        TESSIVOX_BACKEND,
        {"--state", (folder.path() / "state").string(), "--testing", "--engine", "fake", "--fake-decode", "100000"},
        folder.path() / "errors");
    if (!server.waitForUrl()) throw std::runtime_error("The server does not start.");
    Report report(isSmoke);
    reportUpload(report, server, megabytes);
    reportPolling(report, server, seconds, isSmoke ? 1 : kRounds);
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    const tessivox::bench::Arguments arguments(count, values);
    return tessivox::bench::runOrExplain("bench_backend", [&] { return tessivox::bench::run(arguments); });
}
