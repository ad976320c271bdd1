#include "platform/linux/posix/DetachedProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {
namespace {

constexpr int kFirstGiven = 3;
/// Copies of what the program is given stand above all its places, so that none is overwritten before it is moved.
constexpr int kFirstCopy = 64;

void check(int code, const char* what) {
    if (code != 0) throw std::system_error(code, std::generic_category(), what);
}

/// What the new process does before it becomes the program; see posix_spawn_file_actions_init(3).
class FileActions {
public:
    FileActions() { check(::posix_spawn_file_actions_init(&actions_), "posix_spawn"); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    void fillStandard(int log) {
        for (const int place : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            check(::posix_spawn_file_actions_addopen(&actions_, place, "/dev/null", O_RDWR, 0), "posix_spawn");
        }
        if (log >= 0) put(log, STDERR_FILENO);
    }
    void give(const std::vector<int>& descriptors) {
        int place = kFirstGiven;
        for (const int descriptor : descriptors) put(descriptor, place++);
        check(::posix_spawn_file_actions_addclosefrom_np(&actions_, place), "posix_spawn");
        check(::posix_spawn_file_actions_addchdir_np(&actions_, "/"), "posix_spawn");
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
    std::vector<Descriptor> copies_;

    void put(int descriptor, int place) {
        copies_.emplace_back(::fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstCopy));
        if (!copies_.back()) throw std::system_error(errno, std::generic_category(), "fcntl");
        check(::posix_spawn_file_actions_adddup2(&actions_, copies_.back().get(), place), "posix_spawn");
    }
};

/// Without the signal mask and the ignored signals of this process.
class Attributes {
public:
    Attributes() {
        check(::posix_spawnattr_init(&attributes_), "posix_spawn");
        sigset_t set{};
        ::sigemptyset(&set);
        ::posix_spawnattr_setsigmask(&attributes_, &set);
        ::sigfillset(&set);
        ::posix_spawnattr_setsigdefault(&attributes_, &set);
        constexpr int kFlags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID;
        ::posix_spawnattr_setflags(&attributes_, static_cast<short>(kFlags));
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

pid_t spawn(const DetachedProcess::Program& program) {
    FileActions actions;
    actions.fillStandard(program.log);
    actions.give(program.descriptors);
    const Attributes attributes;
    auto file = program.file.string();
    auto texts = program.arguments;
    std::vector<char*> arguments{file.data()};
    for (auto& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    pid_t pid = -1;
    check(::posix_spawn(&pid, file.c_str(), actions.get(), attributes.get(), arguments.data(), environ), "posix_spawn");
    return pid;
}

/// Takes the end of a process that has ended.
std::optional<int> exitCodeOf(pid_t pid) {
    int status = 0;
    const bool isKnown = retry([&] { return ::waitpid(pid, &status, WNOHANG); }) == pid;
    return isKnown && WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace

DetachedProcess::DetachedProcess(EventLoop& loop, const Program& program, OnEnd onEnd)
    : pid_(spawn(program)), end_(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0))) {
    if (!end_) throw std::system_error(errno, std::generic_category(), "pidfd_open");
    ended_ = loop.watch(end_.get(), EPOLLIN, [this, onEnd = std::move(onEnd)](std::uint32_t) {
        const auto tell = onEnd;
        const auto exitCode = exitCodeOf(pid_);
        ended_.reset();  // and with it this function
        tell(exitCode);
    });
}

}  // namespace tessivox::posix
