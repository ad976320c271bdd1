#include "backend/Server.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include "backend/EngineFactory.h"
#include "backend/Listening.h"
#include "backend/api/Api.h"
#include "backend/http/HttpServer.h"
#include "backend/worker/JobRunner.h"
#include "base/Log.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/posix/SignalWatch.h"
#include "platform/linux/posix/XdgFolders.h"

namespace tessivox::backend {
namespace {

using namespace std::chrono_literals;

constexpr auto kGrace = 30s;             // for answers under way at the end
constexpr auto kPatience = kGrace + 5s;  // for a predecessor's end
constexpr auto kHousekeeping = 10min;    // between looks for what has been kept for long enough

std::filesystem::path stateFolder(const ServerOptions& options) {
    if (!options.state.empty()) return std::filesystem::absolute(options.state);
    return posix::standardFolders(posix::processEnvironment()).state / "Tessivox" / "backend";
}

/// Ends the process if its clients do not let it go in time. All that matters is on the disk.
class Farewell {
public:
    Farewell() : thread_([this] { wait(); }) {}
    ~Farewell() {
        {
            const std::lock_guard lock(mutex_);
            isDone_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isDone_ = false;
    std::thread thread_;

    void wait() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, kGrace, [this] { return isDone_; })) std::_Exit(0);
    }
};

/// The lock of whoever serves from a state folder.
std::unique_ptr<base::File> lockState(base::Files& files, const std::filesystem::path& folder) {
    files.makeFolders(folder);
    const auto path = folder / "lock";
    try {
        files.create(path);
    } catch (const base::FileError&) {
        if (!files.exists(path)) throw;
    }
    auto file = files.open(path, base::FileAccess::update);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!file->tryLock(path)) {
        if (std::chrono::steady_clock::now() > end) {
            throw base::Error("backend", 1, "Another tessivox-backend uses \"" + folder.string() + "\"; end it first.");
        }
        std::this_thread::sleep_for(50ms);
    }
    return file;
}

class Server {
public:
    explicit Server(const ServerOptions& options)
        : options_(options),
          signals_(loop_, {SIGTERM, SIGINT, SIGHUP}, [this](int) { loop_.quit(); }),
          listening_(options.isInherited ? Listening::inherited() : Listening::open(options.listen)),
          folder_(stateFolder(options)),
          lock_(lockState(files_, folder_)) {}

    void run() {
        auto tls = options_.listen.certificate.empty()
                       ? std::optional<Tls>()
                       : std::optional<Tls>(std::in_place, options_.listen.certificate, options_.listen.key);
        const HttpServer server(std::move(listening_.socket), std::move(tls),
                                [this](const HttpRequest& request) { return api_.answer(request); });
        watchOwner();
        const auto housekeeping = loop_.every(kHousekeeping, [this] { jobs_.eraseExpired(); });
        const auto idleness = loop_.every(1s, [this] { endIfIdle(); });
        runner_->wake();
        base::log("Serving.");
        loop_.run();
        base::log("Ending.");
        farewell_.emplace();
        listening_.leaveAddress();
        runner_.reset();  // its job counts as not begun even if clients do not let the process go
    }
    const std::string& url() const { return listening_.url; }

private:
    const ServerOptions options_;
    posix::EventLoop loop_;
    posix::SignalWatch signals_;
    posix::PosixFiles files_{loop_};
    Listening listening_;
    const std::filesystem::path folder_;
    const std::unique_ptr<base::File> lock_;
    JobStore jobs_{files_, folder_, options_.limits,
                   [this] { return loop_.wallNow() + base::Duration(options_.clockOffset); }, posix::fillRandom};
    DeviceTokens devices_{files_, folder_ / "devices.json", posix::fillRandom};
    MessageLog messages_{files_, folder_ / "messages.jsonl"};
    std::unique_ptr<Summarizer> summarizer_ = makeSummarizer(options_.engine);
    Faults faults_{options_.faults};
    std::unique_ptr<JobRunner> runner_ =
        std::make_unique<JobRunner>(loop_, jobs_, options_.engine, options_.limits);  ///< while the loop runs
    Api api_{listening_.identity, {jobs_, devices_, messages_, *summarizer_, faults_, options_.isTesting, [this] {
                                       loop_.post([this] { runner_->wake(); });
                                   }}};
    bool hasOwner_ = true;
    base::Subscription ownerGone_;
    std::optional<Farewell> farewell_;

    void watchOwner() {
        if (!listening_.owner) return;
        ownerGone_ = loop_.watch(listening_.owner.get(), EPOLLIN, [this](std::uint32_t) {
            char byte = 0;
            if (::read(listening_.owner.get(), &byte, 1) > 0) return;
            hasOwner_ = false;
            ownerGone_.reset();
        });
    }
    void endIfIdle() {
        if (!hasOwner_ && api_.isIdleFor(options_.idleTime) && !jobs_.hasWork()) loop_.quit();
    }
};

}  // namespace

int runServer(const ServerOptions& options) {
    Server server(options);
    if (!options.isInherited) {
        std::printf("%s\n", server.url().c_str());
        std::fflush(stdout);
    }
    server.run();
    return 0;
}

}  // namespace tessivox::backend
