#include "support/BackendProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace tessivox::testing {
namespace {

constexpr int kPatience = 20;  // seconds

std::size_t promisedBody(const std::string& head) {
    const auto at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16));
}

Reply parseReply(const std::string& text) {
    const auto end = text.find("\r\n\r\n");
    if (end == std::string::npos || !text.starts_with("HTTP/1.1 ")) return {};
    return {std::stoi(text.substr(9)), text.substr(0, end), text.substr(end + 4)};
}

/// Answers "100 Continue" are no answers.
Reply readReply(int socket) {
    std::string text;
    std::array<char, 65536> bytes;
    ssize_t count = 0;
    while ((count = ::recv(socket, bytes.data(), bytes.size(), 0)) > 0) {
        text.append(bytes.data(), static_cast<std::size_t>(count));
        if (text.starts_with("HTTP/1.1 100")) text.erase(0, text.find("\r\n\r\n") + 4);
        const auto reply = parseReply(text);
        if (reply.status != 0 && reply.body.size() >= promisedBody(reply.head)) break;
    }
    return parseReply(text);
}

void sendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

/// In the child: the descriptors take their places, none other stays open.
void arrangeDescriptors(std::vector<int> inherited, int output, int errors) {
    for (auto& fd : inherited) fd = ::fcntl(fd, F_DUPFD, 100);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    int place = STDERR_FILENO;
    for (const int fd : inherited) ::dup2(fd, ++place);
    ::close_range(static_cast<unsigned>(place) + 1, ~0U, 0);
}

}  // namespace

int connectTo(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{kPatience, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return socket;
    ::close(socket);
    return -1;
}

Reply exchange(std::uint16_t port, std::string_view bytes) {
    const int socket = connectTo(port);
    if (socket < 0) return {};
    sendAll(socket, bytes);
    const auto reply = readReply(socket);
    ::close(socket);
    return reply;
}

BackendProcess::BackendProcess(const Path& program, const std::vector<std::string>& arguments, const Path& errors,
                               const std::vector<int>& inherited) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    const int log = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::vector<std::string> copies{program.string()};
    copies.insert(copies.end(), arguments.begin(), arguments.end());
    std::vector<char*> values;
    for (auto& copy : copies) values.push_back(copy.data());
    values.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
        arrangeDescriptors(inherited, pipe[1], log);
        ::execv(program.c_str(), values.data());
        ::_exit(127);
    }
    ::close(pipe[1]);
    ::close(log);
    output_ = pipe[0];
}

BackendProcess::~BackendProcess() {
    if (pid_ > 0) stop(SIGKILL);
    ::close(output_);
}

bool BackendProcess::waitForUrl() {
    std::string line;
    char c = 0;
    pollfd fd{output_, POLLIN, 0};
    while (::poll(&fd, 1, kPatience * 1000) > 0 && ::read(output_, &c, 1) == 1 && c != '\n') line += c;
    url_ = line;
    return c == '\n';
}

std::uint16_t BackendProcess::port() const {
    return static_cast<std::uint16_t>(std::stoi(url_.substr(url_.find(':', url_.find("://") + 3) + 1)));
}

std::string BackendProcess::target(const std::string& path) const {
    return url_.substr(url_.find('/', url_.find("://") + 3)) + path;
}

std::string BackendProcess::request(const std::string& method, const std::string& path, const Headers& headers,
                                    const std::string& body) const {
    auto all = headers;
    all.try_emplace("Host", "127.0.0.1:" + std::to_string(port()));
    if (method == "POST") all.try_emplace("Content-Length", std::to_string(body.size()));
    auto text = method + " " + (path.starts_with("/") ? target(path) : "/" + path) + " HTTP/1.1\r\n";
    for (const auto& [name, value] : all) text += name + ": " + value + "\r\n";
    return text + "\r\n" + body;
}

Reply BackendProcess::get(const std::string& path, const Headers& headers) const {
    return exchange(port(), request("GET", path, headers));
}

Reply BackendProcess::post(const std::string& path, const std::string& type, const std::string& body,
                           const Headers& headers) const {
    auto all = headers;
    all.emplace("Content-Type", type);
    return exchange(port(), request("POST", path, all, body));
}

std::string BackendProcess::multipart(const std::string& boundary, const std::string& bytes, const std::string& name) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + name +
           "\"\r\nContent-Type: audio/m4a\r\n\r\n" + bytes + "\r\n--" + boundary + "--\r\n";
}

Reply BackendProcess::upload(const std::string& bytes, const std::string& name) const {
    return post("/transcribe/submit", "multipart/form-data; boundary=B0UND", multipart("B0UND", bytes, name));
}

int BackendProcess::stop(int signal) {
    if (pid_ <= 0) return -1000;
    ::kill(pid_, signal);
    return wait();
}

int BackendProcess::wait() {
    int status = 0;
    for (int tries = 0; tries < kPatience * 100; ++tries) {
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        ::poll(nullptr, 0, 10);
    }
    return -1000;
}

}  // namespace tessivox::testing
