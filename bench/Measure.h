#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::bench {

/// What a piece of work took, in seconds. CPU is user and system time together.
struct Cost {
    double wall = 0;
    double cpu = 0;
};

/// Measures from its making, or from the last restart(), the calling thread or the whole process.
class Stopwatch {
public:
    enum class Scope { thread, process };
    explicit Stopwatch(Scope scope = Scope::thread) : scope_(scope) { restart(); }
    void restart();
    Cost elapsed() const;

private:
    Scope scope_;
    Cost start_;
};

/// Runs a program found by PATH, without standard input and output, and waits for it. Throws std::runtime_error if it
/// does not start or does not exit with 0.
Cost runProgram(const std::vector<std::string>& command);

/// What another process has used so far, in seconds, its threads that ended included. Throws std::runtime_error.
double cpuSecondsOf(pid_t process);

/// The middle of the values; 0 if there are none.
double median(std::vector<double> values);

/// Bytes of the process that are in memory and belong to no file.
std::uint64_t anonymousMemory();

/// Calls of malloc and its relatives by the calling thread so far, operator new included.
std::uint64_t allocations();

/// A new folder below the temporary directory, removed with what is in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// The command line of a benchmark: "--smoke" for a run of seconds that only shows that it works, "--NAME VALUE" for
/// numbers.
class Arguments {
public:
    Arguments(int count, char** values) : values_(values + 1, values + count) {}
    bool isSmoke() const;
    double number(std::string_view name, double otherwise) const;

private:
    std::vector<std::string> values_;
};

}  // namespace tessivox::bench
