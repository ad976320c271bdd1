#include "platform/linux/posix/SignalWatch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;

TEST(SignalWatchTest, BringsSignalsOfOtherProcessesToTheLoop) {
    EventLoop loop;
    std::vector<int> told;
    const auto deadline = loop.after(20s, [&] { loop.quit(); });
    {
        const SignalWatch watch(loop, {SIGTERM, SIGHUP}, [&](int signal) {
            told.push_back(signal);
            if (told.size() == 2) loop.quit();
        });
        const pid_t child = ::fork();
        if (child == 0) {
            ::kill(::getppid(), SIGHUP);
            ::kill(::getppid(), SIGTERM);
            ::_exit(0);
        }
        loop.run();
        ::waitpid(child, nullptr, 0);
    }
    EXPECT_EQ(told.size(), 2U);
    EXPECT_EQ(told.front() + told.back(), SIGHUP + SIGTERM);
    sigset_t mask{};
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
}

TEST(SignalWatchTest, SurvivesABrokenPipe) {
    EventLoop loop;
    const SignalWatch watch(loop, {SIGINT}, [](int) {});
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    ::close(pipe[0]);
    EXPECT_EQ(::write(pipe[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    ::close(pipe[1]);
}

}  // namespace
}  // namespace tessivox::posix
