#include "backend/engines/ProcessGroup.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "backend/engines/EngineError.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

/// posix_spawn(3) with a new or a given group, default signals, and three descriptors.
class Spawning {
public:
    explicit Spawning(pid_t group) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::posix_spawnattr_setpgroup(&attributes_, group);
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    Spawning(const Spawning&) = delete;
    Spawning& operator=(const Spawning&) = delete;
    ~Spawning() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }

    void connect(int fd, int as) { ::posix_spawn_file_actions_adddup2(&actions_, fd, as); }
    void connectToNothing(int as) { ::posix_spawn_file_actions_addopen(&actions_, as, "/dev/null", O_RDWR, 0); }

    /// Throws EngineError.
    pid_t start(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
        pid_t child = 0;
        const auto program = arguments.at(0);
        const int error = ::posix_spawnp(&child, program.c_str(), &actions_, &attributes_, pointers(arguments).data(),
                                         pointers(environment).data());
        if (error == 0) return child;
        throw EngineError("Cannot start the speech program \"" + program +
                          "\": " + std::generic_category().message(error) + ". Check the command's first word.");
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};

    static std::vector<char*> pointers(const std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (const auto& text : texts) result.push_back(const_cast<char*>(text.c_str()));
        result.push_back(nullptr);
        return result;
    }
};

std::vector<std::string> environmentOfPrograms(const std::string& folder) {
    std::vector<std::string> variables = {"TMPDIR=" + folder};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        if (!text.starts_with("TESSIVOX_") && !text.starts_with("TMPDIR=")) variables.emplace_back(text);
    }
    return variables;
}

void reap(pid_t& child, int* status) {
    if (child > 0) posix::retry([&] { return ::waitpid(child, status, 0); });
    child = 0;
}

}  // namespace

ProcessGroup::ProcessGroup(const std::filesystem::path& folder) : folder_(folder) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw EngineError(std::string("Cannot start a speech program: ") + std::strerror(errno) + ".");
    }
    const posix::Descriptor theirs(ends[0]);
    life_ = posix::Descriptor(ends[1]);
    startKeeper(theirs.get());
}

/// The group's first member reads until there is nobody left who could write. As the group's leader it keeps the
/// group's number from being given to others for as long as we need it.
void ProcessGroup::startKeeper(int life) {
    constexpr const char* kScript =
        "trap '' HUP INT QUIT TERM\n"
        "read -r _\n"
        "kill -TERM 0\n"
        "/bin/rm -rf -- \"$1\"\n"
        "kill -KILL 0";
    Spawning spawning(0);
    spawning.connect(life, STDIN_FILENO);
    spawning.connectToNothing(STDOUT_FILENO);
    spawning.connectToNothing(STDERR_FILENO);
    keeper_ = spawning.start({"/bin/sh", "-c", kScript, "tessivox-keeper", folder_}, {});
}

void ProcessGroup::start(const std::vector<std::string>& arguments, int output, int errors) {
    Spawning spawning(keeper_);
    spawning.connectToNothing(STDIN_FILENO);
    spawning.connect(output, STDOUT_FILENO);
    spawning.connect(errors, STDERR_FILENO);
    program_ = spawning.start(arguments, environmentOfPrograms(folder_));
    // glibc 2.36 declares pidfd_open(2) in a way that C++ cannot call.
    programEnd_ = posix::Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, program_, 0U)));
    if (!programEnd_) throw EngineError(std::string("Cannot watch a speech program: ") + std::strerror(errno) + ".");
}

int ProcessGroup::status() {
    int status = 0;
    reap(program_, &status);
    return status;
}

void ProcessGroup::end() noexcept {
    if (keeper_ == 0) return;
    ::kill(-keeper_, SIGKILL);
    reap(program_, nullptr);
    reap(keeper_, nullptr);
}

}  // namespace tessivox::backend
