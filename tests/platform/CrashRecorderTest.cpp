#include "platform/linux/posix/CrashRecorder.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/Uuid.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/QueueThread.h"
#include "platform/linux/posix/RandomBytes.h"
#include "support/TestFolder.h"

// ThreadSanitizer holds signals back, so there is nothing here for it to see.
#ifndef __SANITIZE_THREAD__

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// Each test crashes a child of its own, which has no sanitizer's handlers.
struct CrashRecorderTest : ::testing::Test {
    EventLoop loop;
    PosixFiles files{loop};
    testing::TestFolder made;
    const std::filesystem::path home = made.path();
    fs::path folder = home / "Tessivox" / "Crashes";

    /// Runs the action in a child with a recorder; gives the child's wait status.
    template <typename Action>
    int inChild(Action action) {
        const pid_t child = ::fork();
        if (child == 0) {
            const rlimit none{0, 0};
            ::setrlimit(RLIMIT_CORE, &none);
            ::alarm(30);
            for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP})
                std::signal(number, SIG_DFL);
            CrashRecorder recorder(loop, files, folder);
            recorder.start({});
            recorder.setScope({{{"app_version", "1.2"}}, "ME"});
            recorder.addBreadcrumb(
                {"Recording started", "recording", telemetry::BreadcrumbLevel::info, {{"source", "manual"}}});
            action();
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return status;
    }
    std::vector<fs::path> reports() const {
        std::vector<fs::path> paths;
        if (fs::exists(folder)) paths.assign(fs::directory_iterator(folder), {});
        return paths;
    }
    /// The lines of the only report.
    std::vector<std::string> report() const {
        const auto paths = reports();
        EXPECT_EQ(paths.size(), 1U);
        std::vector<std::string> lines;
        if (paths.empty()) return lines;
        std::ifstream file(paths.front());
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    }
    static std::string valueOf(const std::vector<std::string>& lines, const std::string& key) {
        for (const auto& line : lines) {
            if (line.starts_with(key + ": ")) return line.substr(key.size() + 2);
        }
        return "(none)";
    }
};

/// Never inlined, so that it has a frame to find.
[[gnu::noinline]] void writeThrough(volatile int* address) { *address = 1; }

[[gnu::noinline]] int recurse(volatile char* above) {  // NOLINT(misc-no-recursion)
    std::array<volatile char, 4096> frame{};
    if (*above == 1) return 0;
    frame[0] = *above;
    return recurse(frame.data()) + frame[0];
}

TEST_F(CrashRecorderTest, ReportsASegmentationFaultAndDiesByIt) {
    const int status = inChild([] { writeThrough(reinterpret_cast<int*>(0x10)); });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);
    const auto lines = report();
    EXPECT_EQ(valueOf(lines, "type"), "SIGSEGV");
    EXPECT_EQ(valueOf(lines, "signal"), "11");
    EXPECT_EQ(valueOf(lines, "address"), "0x10");
    EXPECT_EQ(valueOf(lines, "tag app_version"), "1.2");
    EXPECT_EQ(valueOf(lines, "user"), "ME");
    EXPECT_EQ(valueOf(lines, "environment"), "production");
    EXPECT_EQ(valueOf(lines, "program"), fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(valueOf(lines, "build_id").size(), 40U);
    EXPECT_EQ(valueOf(lines, "breadcrumb").substr(24), " info recording: Recording started source=manual");
    EXPECT_EQ(lines.back(), "end:");
}

TEST_F(CrashRecorderTest, KeepsItsReportsToTheUser) {
    inChild([] { std::abort(); });
    struct stat folderInfo {};
    struct stat fileInfo {};
    ASSERT_EQ(::stat(folder.c_str(), &folderInfo), 0);
    ASSERT_EQ(::stat(reports().at(0).c_str(), &fileInfo), 0);
    EXPECT_EQ(folderInfo.st_mode & 0777, 0700U);
    EXPECT_EQ(fileInfo.st_mode & 0777, 0600U);
}

TEST_F(CrashRecorderTest, NamesTheFunctionThatCrashedForAddr2line) {
    inChild([] { writeThrough(reinterpret_cast<int*>(0x10)); });
    const auto lines = report();
    const auto frame = valueOf(lines, "frame");
    EXPECT_EQ(frame.substr(0, frame.find(' ')), valueOf(lines, "instruction"));
    ASSERT_NE(frame.find(" own +"), frame.npos) << frame;
    const auto offset = frame.substr(frame.find('+') + 1);
    const auto command = "addr2line -fC -e '" + valueOf(lines, "program") + "' " + offset;
    std::FILE* answer = ::popen(command.c_str(), "r");
    std::array<char, 256> name{};
    ASSERT_NE(std::fgets(name.data(), static_cast<int>(name.size()), answer), nullptr);
    ::pclose(answer);
    EXPECT_NE(std::string(name.data()).find("writeThrough"), std::string::npos) << name.data();
}

TEST_F(CrashRecorderTest, DiesByWhicheverFatalSignalCame) {
    for (const int number : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP}) {
        const int status = inChild([number] { ::raise(number); });
        ASSERT_TRUE(WIFSIGNALED(status)) << number;
        EXPECT_EQ(WTERMSIG(status), number);
        EXPECT_EQ(valueOf(report(), "signal"), std::to_string(number));
        fs::remove_all(folder);
    }
    EXPECT_EQ(WTERMSIG(inChild([] { std::abort(); })), SIGABRT);
}

TEST_F(CrashRecorderTest, ReportsAStackOverflowOnTheMainThreadAndOnAQueue) {
    char top = 0;
    EXPECT_EQ(WTERMSIG(inChild([&] { recurse(&top); })), SIGSEGV);
    EXPECT_EQ(report().back(), "end:");
    fs::remove_all(folder);
    const int status = inChild([&] {
        QueueThread queue(loop, "com.tessivox.stereo.write", base::QueuePriority::utility);
        queue.post([&] { recurse(&top); });
    });
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);
    const auto thread = valueOf(report(), "thread");
    EXPECT_EQ(thread.substr(thread.find(' ')), " write");
    EXPECT_EQ(report().back(), "end:");
}

#ifdef __x86_64__
TEST_F(CrashRecorderTest, KeepsWhatItHasWhenTheStackIsBrokenAndDoesNotLoop) {
    const int status = inChild([] {
        asm volatile(
            "mov $64, %rsp\n"
            "mov $64, %rbp\n"
            "movl $0, 0");
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);
    EXPECT_EQ(valueOf(report(), "type"), "SIGSEGV");
    EXPECT_EQ(valueOf(report(), "breadcrumb").substr(24), " info recording: Recording started source=manual");
}
#endif

TEST_F(CrashRecorderTest, HandsTheSignalToWhoeverHandledItBefore) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGFPE, [](int) { ::_exit(42); });
        CrashRecorder recorder(loop, files, folder);
        recorder.start({});
        ::raise(SIGFPE);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
    EXPECT_EQ(valueOf(report(), "type"), "SIGFPE");
}

TEST_F(CrashRecorderTest, LeavesNoHandlerBehind) {
    struct sigaction before {};
    struct sigaction after {};
    ::sigaction(SIGSEGV, nullptr, &before);
    {
        CrashRecorder recorder(loop, files, folder);
        recorder.start({});
    }
    ::sigaction(SIGSEGV, nullptr, &after);
    EXPECT_EQ(after.sa_sigaction, before.sa_sigaction);
}

TEST_F(CrashRecorderTest, KeepsOnlyTheNewestReports) {
    fs::create_directories(folder);
    for (int day = 10; day < 35; ++day) {
        std::ofstream(folder / ("2026-01-" + std::to_string(day) + "T00-00-00.000Z-1.txt")) << "type: SIGSEGV\n";
    }
    inChild([] {});
    EXPECT_EQ(reports().size(), telemetry::CrashReports::kMostReports);
    EXPECT_FALSE(fs::exists(folder / "2026-01-14T00-00-00.000Z-1.txt"));
    EXPECT_TRUE(fs::exists(folder / "2026-01-15T00-00-00.000Z-1.txt"));
}

TEST_F(CrashRecorderTest, DoesNothingButLetTheProcessDieWhereItCannotWrite) {
    std::ofstream(home / "Tessivox") << "a file where the folder should be";
    EXPECT_EQ(WTERMSIG(inChild([] { std::abort(); })), SIGABRT);
}

TEST(RandomBytesTest, MakesIdentifiersThatDiffer) { EXPECT_NE(base::makeUuid(fillRandom), base::makeUuid(fillRandom)); }

}  // namespace
}  // namespace tessivox::posix

#endif
