#include "platform/linux/posix/LocalServer.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "platform/linux/posix/RandomBytes.h"

namespace tessivox::posix {
namespace {

using base::HttpErrorCode;
using Path = std::filesystem::path;

constexpr int kBacklog = 512;
constexpr base::Duration kLookAgain = std::chrono::milliseconds(10);
constexpr int kMostLooks = 200;
/// A server that ran for so long did not crash at its start.
constexpr base::Duration kSteady = std::chrono::minutes(1);
/// Until then requests wait at the socket for the server to be back.
constexpr int kMostQuietCrashes = 3;

base::HttpError error(HttpErrorCode code, std::string_view english, std::string_view value = {}) {
    return {code, base::filled(base::localized(english), {value})};
}

int checked(int result, const char* what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

Descriptor listenOnLoopback() {
    Descriptor socket(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    checked(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    checked(::listen(socket.get(), kBacklog), "listen");
    return socket;
}

int portOf(const Descriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    checked(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
    return ntohs(address.sin_port);
}

/// 128 random bits as hexadecimal digits.
std::string makeSecret() {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<std::byte, 16> bytes;
    fillRandom(bytes);
    std::string secret;
    for (const auto byte : bytes) {
        const auto value = std::to_integer<unsigned>(byte);
        secret += {kDigits[value >> 4U], kDigits[value & 15U]};
    }
    return secret;
}

struct Pipe {
    Descriptor read;
    Descriptor write;

    Pipe() {
        std::array<int, 2> ends{};
        checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
        read = Descriptor(ends[0]);
        write = Descriptor(ends[1]);
    }
};

}  // namespace

base::Task<std::string> LocalServer::baseURL() {
    for (int look = 0; look < kMostLooks; ++look) {
        if (auto url = findOrStart()) {
            lastURL_ = *url;
            co_return std::move(*url);
        }
        co_await loop_.sleep(kLookAgain);
    }
    throw error(HttpErrorCode::refused, "The transcription server of this computer does not start. Try again later.");
}

/// Absent while another process is about to start the server.
std::optional<std::string> LocalServer::findOrStart() {
    try {
        if (own_) return ownURL();
        auto file = AddressFile::open(options_.addressFile);
        if (file.tryLock()) return start(std::move(file));
        return file.url();
    } catch (const base::HttpError&) {
        throw;
    } catch (const base::Error& failure) {
        throw base::HttpError(HttpErrorCode::refused, failure.description());
    } catch (const std::system_error& failure) {
        throw error(HttpErrorCode::refused,
                    "The transcription server of this computer cannot be started: {0}. Try again later, or name "
                    "another server with --server.",
                    failure.code().message());
    }
}

std::string LocalServer::ownURL() const {
    if (!own_->process && own_->crashes > kMostQuietCrashes) {
        throw error(HttpErrorCode::refused,
                    "The transcription server of this computer keeps ending as soon as it starts: see \"{0}\".",
                    options_.log.string());
    }
    return own_->url;
}

std::string LocalServer::start(AddressFile file) {
    file.clear();
    if (options_.program.empty()) {
        throw error(
            HttpErrorCode::notConnected,
            "The program tessivox-backend, which transcribes on this computer, is not installed: install it, or "
            "name another server with --server.");
    }
    auto own = std::make_unique<Own>();
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    own->log = Descriptor(::open(options_.log.c_str(), kFlags, 0600));  // without one it starts as well
    own->listener = listenOnLoopback();
    own->url = "http://127.0.0.1:" + std::to_string(portOf(own->listener)) + "/" + makeSecret() + "/api";
    file.write(own->url);
    own->lock = std::move(file);
    launch(*own);
    own_ = std::move(own);
    return own_->url;
}

/// Hands the lock, the socket and the pipe to a new process.
void LocalServer::launch(Own& own) {
    Pipe pipe;
    const DetachedProcess::Program program{
        options_.program, {"--inherited"}, {own.listener.get(), own.lock->fd(), pipe.read.get()}, own.log.get()};
    own.process = std::make_unique<DetachedProcess>(loop_, program, [this](std::optional<int> code) { onEnd(code); });
    own.keptEnd = std::move(pipe.write);
    own.lock.reset();
    own.startedAt = loop_.now();
}

/// A server that ends without complaint was told to. Any other is started again.
void LocalServer::onEnd(std::optional<int> exitCode) {
    base::log("[Server] It ended: " + (exitCode ? "exit code " + std::to_string(*exitCode) : "killed"));
    own_->process.reset();
    if (exitCode == 0) return own_.reset();
    if (loop_.now() - own_->startedAt > kSteady) own_->crashes = 0;
    takeOver(kMostLooks);
}

/// A process that the server was about to start holds its lock for a moment longer. Whoever holds it for long has begun
/// to start another server.
void LocalServer::takeOver(int looks) {
    try {
        own_->lock = AddressFile::open(options_.addressFile);
        if (!own_->lock->tryLock()) {
            own_->lock.reset();
            if (looks == 0) return own_.reset();
            own_->restart = loop_.after(kLookAgain, [this, looks] { takeOver(looks - 1); });
            return;
        }
        own_->lock->write(own_->url);  // a server that crashed while it was ending has emptied it
    } catch (const base::Error& failure) {
        base::log("[Server] " + failure.description());
        return own_.reset();
    }
    restartLater(*own_);
}

/// The first time at once. The lock is held here meanwhile, so that nobody else starts another server.
void LocalServer::restartLater(Own& own) {
    const auto doublings = std::min(own.crashes - 1, 16);
    const auto pause = doublings < 0 ? base::Duration::zero()
                                     : std::min(options_.firstPause * (1 << doublings), options_.longestPause);
    ++own.crashes;
    own.restart = loop_.after(pause, [this] { restart(); });
}

void LocalServer::restart() {
    try {
        launch(*own_);
    } catch (const std::system_error& failure) {
        base::log(std::string("[Server] It cannot be started again: ") + failure.what());
        restartLater(*own_);
    }
}

LocalServer::Options localServerOptions(const Environment& environment) {
    const auto session = runtimeFolder(environment);
    const auto folder = session ? *session / "Tessivox" : standardFolders(environment).state / "Tessivox" / "run";
    LocalServer::Options options;
    options.addressFile = folder / "backend.json";
    options.program = findProgram("tessivox-backend");
    options.log = folder / "backend.log";
    return options;
}

std::filesystem::path findProgram(const std::string& name) {
    const auto canRun = [](const Path& file) {
        std::error_code ignored;
        return std::filesystem::is_regular_file(file, ignored) && ::access(file.c_str(), X_OK) == 0;
    };
    std::error_code failed;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", failed);
    if (!failed && canRun(self.parent_path() / name)) return self.parent_path() / name;
    const char* const variable = std::getenv("PATH");
    std::string_view rest = variable ? variable : "/usr/local/bin:/usr/bin:/bin";
    while (!rest.empty()) {
        const auto folder = rest.substr(0, rest.find(':'));
        if (folder.starts_with('/') && canRun(Path(folder) / name)) return Path(folder) / name;
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
    }
    return {};
}

}  // namespace tessivox::posix
