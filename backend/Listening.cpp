#include "backend/Listening.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "backend/engines/Utf8.h"
#include "base/Error.h"
#include "base/Log.h"
#include "base/Text.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using posix::Descriptor;

constexpr int kBacklog = 512;
constexpr std::size_t kShortestSecret = 32;

[[noreturn]] void refuse(const std::string& sentence) { throw base::Error("backend", 1, sentence); }

std::string readText(int fd) {
    std::array<char, 4096> bytes{};
    const auto count = posix::retry([&] { return ::pread(fd, bytes.data(), bytes.size(), 0); });
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

bool isSecret(const std::string& text) {
    return text.size() >= kShortestSecret && std::all_of(text.begin(), text.end(), [](char c) {
               return ('0' <= c && c <= '9') || ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z');
           });
}

/// 128 bits in lower-case hexadecimal digits.
std::string newSecret() {
    std::array<std::byte, 16> bytes{};
    posix::fillRandom(bytes);
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const auto byte : bytes) {
        text += kDigits[std::to_integer<std::size_t>(byte >> 4)];
        text += kDigits[std::to_integer<std::size_t>(byte & std::byte{15})];
    }
    return text;
}

std::string readSecret(const std::filesystem::path& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) refuse("Cannot read the secret in \"" + path.string() + "\".");
    if ((status.st_mode & 077) != 0) {
        refuse("Others can read \"" + path.string() + "\"; take that from them with chmod 600.");
    }
    const auto secret = std::string(base::trimmed(readText(file.get())));
    if (!isSecret(secret)) refuse("The secret in \"" + path.string() + "\" has to be 32 or more letters and digits.");
    return secret;
}

/// "SECRET" of "http://127.0.0.1:PORT/SECRET/api"; empty if it is not that.
std::string secretIn(const std::string& url) {
    constexpr std::string_view kStart = "http://127.0.0.1:";
    constexpr std::string_view kEnd = "/api";
    const auto slash = url.find('/', kStart.size());
    if (!url.starts_with(kStart) || !url.ends_with(kEnd) || slash == std::string::npos) return {};
    if (url.size() < slash + 1 + kEnd.size()) return {};
    return url.substr(slash + 1, url.size() - kEnd.size() - slash - 1);
}

Descriptor adopt(int fd) {
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    return Descriptor(fd);
}

using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

Addresses resolve(const ListenOptions& options) {
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const auto port = std::to_string(options.port);
    if (::getaddrinfo(options.address.c_str(), port.c_str(), &hints, &found) != 0) {
        refuse("\"" + options.address + "\" is no address of this machine.");
    }
    return {found, ::freeaddrinfo};
}

Descriptor listenAt(const ListenOptions& options) {
    const auto address = resolve(options);
    Descriptor socket(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    // Only lets a restarted server have its port at once; another that listens there is still in the way.
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!socket || ::bind(socket.get(), address->ai_addr, address->ai_addrlen) != 0 ||
        ::listen(socket.get(), kBacklog) != 0) {
        refuse("Cannot listen at " + options.address + ", port " + std::to_string(options.port) + ": " +
               std::strerror(errno) + ".");
    }
    return socket;
}

int portOf(const Descriptor& socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const auto port = address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                                    : reinterpret_cast<sockaddr_in*>(&address)->sin_port;
    return ntohs(port);
}

}  // namespace

Listening Listening::inherited() {
    constexpr const char* kMissing = "--inherited is for Tessivox, which starts the server by itself; use --listen.";
    int isListening = 0;
    socklen_t size = sizeof isListening;
    struct stat file {};
    struct stat pipe {};
    if (::getsockopt(3, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &size) != 0 || isListening == 0 ||
        ::fstat(4, &file) != 0 || !S_ISREG(file.st_mode) || ::fstat(5, &pipe) != 0 || !S_ISFIFO(pipe.st_mode)) {
        refuse(kMissing);
    }
    Listening all{adopt(3), {}, {}, adopt(4), adopt(5)};
    ::fcntl(3, F_SETFL, ::fcntl(3, F_GETFL) | O_NONBLOCK);
    const auto document = nlohmann::json::parse(readText(4), nullptr, false);
    if (document.is_object()) all.url = document.value("url", "");
    all.identity = {secretIn(all.url), {"127.0.0.1", "localhost"}};
    if (!isSecret(all.identity.secret)) refuse("The file with the server's address holds none; start Tessivox again.");
    return all;
}

void Listening::leaveAddress() {
    if (!addressFile) return;
    if (::ftruncate(addressFile.get(), 0) != 0) base::log("Cannot empty the file with the server's address.");
    addressFile = Descriptor();
}

Listening Listening::open(const ListenOptions& options) {
    Listening all{listenAt(options), {}, {}, {}, {}};
    const bool isNumeric6 = options.address.find(':') != std::string::npos;
    const auto address = isNumeric6 ? "[" + options.address + "]" : options.address;
    const auto host = options.host.empty() ? address : options.host;
    all.identity.secret = options.secretFile.empty() ? newSecret() : readSecret(options.secretFile);
    all.identity.hosts = {lowered(host)};
    if (options.host.empty()) all.identity.hosts.push_back("localhost");
    const auto* scheme = options.certificate.empty() ? "http://" : "https://";
    all.url = scheme + host + ":" + std::to_string(portOf(all.socket)) + "/" + all.identity.secret + "/api";
    return all;
}

}  // namespace tessivox::backend
