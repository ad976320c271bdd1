#include "Measure.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace tessivox::bench {
namespace {

double secondsOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

pid_t start(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int result = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) throw std::runtime_error("cannot start " + command[0]);
    return child;
}

}  // namespace

void Stopwatch::restart() {
    start_ = {};
    start_ = elapsed();
}

Cost Stopwatch::elapsed() const {
    const double cpu = secondsOf(scope_ == Scope::thread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_PROCESS_CPUTIME_ID);
    return {.wall = secondsOf(CLOCK_MONOTONIC) - start_.wall, .cpu = cpu - start_.cpu};
}

Cost runProgram(const std::vector<std::string>& command) {
    const Stopwatch watch;
    const pid_t child = start(command);
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), command[0]);
    }
    if (status != 0) throw std::runtime_error(command[0] + " failed");
    return {.wall = watch.elapsed().wall, .cpu = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime)};
}

double cpuSecondsOf(pid_t process) {
    clockid_t clock{};
    if (clock_getcpuclockid(process, &clock) != 0) throw std::runtime_error("a measured process has ended");
    return secondsOf(clock);
}

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

std::uint64_t anonymousMemory() {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::uint64_t kilobytes = 0;
    while (status >> word) {
        if (word == "RssAnon:" && status >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

TemporaryFolder::TemporaryFolder() {
    auto name = (std::filesystem::temp_directory_path() / "tessivox-bench-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

bool Arguments::isSmoke() const { return std::ranges::find(values_, "--smoke") != values_.end(); }

double Arguments::number(std::string_view name, double otherwise) const {
    const auto found = std::ranges::find(values_, name);
    if (found == values_.end() || found + 1 == values_.end()) return otherwise;
    return std::stod(*(found + 1));
}

}  // namespace tessivox::bench
