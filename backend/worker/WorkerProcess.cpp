#include "backend/worker/WorkerProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>

#include "base/Log.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using posix::Descriptor;
using posix::retry;

constexpr std::size_t kMostLogged = 256 * 1024;  // bytes of a worker's standard error
constexpr std::size_t kLongestLogLine = 2000;

struct Pipe {
    Descriptor read;
    Descriptor write;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// What posix_spawn(3) is told, and its end.
struct SpawnPlan {
    posix_spawn_file_actions_t files{};
    posix_spawnattr_t attributes{};

    SpawnPlan() {
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawnattr_init(&attributes);
        sigset_t all{};
        sigset_t none{};
        ::sigfillset(&all);
        ::sigemptyset(&none);
        ::posix_spawnattr_setsigdefault(&attributes, &all);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
    }
};

/// Reads what there is without waiting and hands it on in pieces.
template <typename Take>
void drain(int fd, Take take) {
    std::array<char, 64 * 1024> bytes;
    ssize_t count = 0;
    while ((count = retry([&] { return ::read(fd, bytes.data(), bytes.size()); })) > 0) {
        take(std::string_view(bytes.data(), static_cast<std::size_t>(count)));
    }
}

/// Appends a piece to the line begun before, and hands on each that is whole.
template <typename Take>
void takeLines(std::string& begun, std::string_view piece, Take take) {
    while (!piece.empty()) {
        const auto end = piece.find('\n');
        begun.append(piece.substr(0, end));
        if (end == std::string_view::npos) return;
        take(std::exchange(begun, {}));
        piece.remove_prefix(end + 1);
    }
}

}  // namespace

WorkerProcess::WorkerProcess(posix::EventLoop& loop, const std::string& input, Handlers handlers)
    : loop_(loop), handlers_(std::move(handlers)) {
    auto in = makePipe();
    auto out = makePipe();
    auto errors = makePipe();
    spawn(in.read.get(), out.write.get(), errors.write.get());
    input_ = std::move(in.write);
    output_ = std::move(out.read);
    errors_ = std::move(errors.read);
    listen();
    // Its own end of the pipe is closed here first, so that a worker that is gone already is an error, not a wait.
    in.read = Descriptor();
    const auto line = input + "\n";
    if (retry([&] { return ::write(input_.get(), line.data(), line.size()); }) < 0) base::log("The worker is gone.");
}

WorkerProcess::~WorkerProcess() {
    if (pid_ < 0) return;
    kill();
    retry([&] { return ::waitpid(pid_, nullptr, 0); });
}

void WorkerProcess::kill() const {
    if (pid_ > 0) ::kill(-pid_, SIGKILL);
}

void WorkerProcess::spawn(int input, int output, int errors) {
    SpawnPlan plan;
    ::posix_spawn_file_actions_adddup2(&plan.files, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&plan.files, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&plan.files, errors, STDERR_FILENO);
    // The library that accepts connections, and others, may leave descriptors open across exec.
    ::posix_spawn_file_actions_addclosefrom_np(&plan.files, STDERR_FILENO + 1);
    std::string name = "tessivox-backend";
    std::string role = "--worker";
    std::array<char*, 3> arguments{name.data(), role.data(), nullptr};
    const int error = ::posix_spawn(&pid_, "/proc/self/exe", &plan.files, &plan.attributes, arguments.data(), environ);
    if (error != 0) {
        pid_ = -1;
        throw std::system_error(error, std::generic_category(), "posix_spawn");
    }
    process_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
}

void WorkerProcess::listen() {
    for (const int fd : {output_.get(), errors_.get()}) ::fcntl(fd, F_SETFL, O_NONBLOCK);
    outputReady_ = loop_.watch(output_.get(), EPOLLIN, [this](std::uint32_t) { readOutput(); });
    errorsReady_ = loop_.watch(errors_.get(), EPOLLIN, [this](std::uint32_t) { readErrors(); });
    gone_ = loop_.watch(process_.get(), EPOLLIN, [this](std::uint32_t) { finish(); });
}

void WorkerProcess::readOutput() {
    bool isSpoken = false;
    drain(output_.get(), [&](std::string_view piece) {
        isSpoken = true;
        outputBytes_ += piece.size();
        if (outputBytes_ > kMostOutput) return kill();
        takeLines(line_, piece, handlers_.line);
    });
    if (!isSpoken) outputReady_.reset();  // its end
}

void WorkerProcess::readErrors() {
    bool isSpoken = false;
    drain(errors_.get(), [&](std::string_view piece) {
        isSpoken = true;
        errorBytes_ += piece.size();
        if (errorBytes_ > kMostLogged) return;
        takeLines(errorLine_, piece,
                  [](const std::string& line) { base::log("worker: " + line.substr(0, kLongestLogLine)); });
    });
    if (!isSpoken) errorsReady_.reset();
}

void WorkerProcess::finish() {
    gone_.reset();
    readOutput();
    readErrors();
    kill();  // what it may have left in its group
    retry([&] { return ::waitpid(pid_, nullptr, 0); });
    pid_ = -1;
    ending_ = loop_.after(base::Duration::zero(), handlers_.ended);
}

}  // namespace tessivox::backend
