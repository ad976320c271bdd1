#include "platform/linux/qt/QtLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QTimer>
#include <cstdint>
#include <thread>
#include <vector>

#include "platform/linux/posix/Descriptor.h"
#include "qt/QtTest.h"

namespace tessivox::qt {
namespace {

using namespace std::chrono_literals;
using QtLoopTest = testing::QtTest;

TEST_F(QtLoopTest, RunsTimersInOrderAndNoneThatWasCancelled) {
    std::vector<int> ran;
    const auto late = loop.after(40ms, [&] { ran.push_back(2); });
    const auto early = loop.after(10ms, [&] { ran.push_back(1); });
    auto cancelled = loop.after(20ms, [&] { ran.push_back(9); });
    cancelled.reset();
    const auto start = loop.now();
    EXPECT_TRUE(runUntil([&] { return ran.size() == 2; }));
    EXPECT_EQ(ran, (std::vector{1, 2}));
    EXPECT_GE(loop.now() - start, 40ms);
}

TEST_F(QtLoopTest, HearsOfATimerThatQtsOwnCallbacksMake) {
    base::Timer made;
    bool ran = false;
    QTimer::singleShot(1, &qt, [&] { made = loop.after(5ms, [&] { ran = true; }); });
    EXPECT_TRUE(runUntil([&] { return ran; }));
}

TEST_F(QtLoopTest, RunsWhatOtherThreadsPostAndSignal) {
    int posted = 0;
    bool drained = false;
    const auto source = loop.source([&] { drained = true; });
    std::thread other([&] {
        for (int count = 0; count < 1000; ++count) loop.post([&] { ++posted; });
        source->signal();
    });
    EXPECT_TRUE(runUntil([&] { return posted == 1000 && drained; }));
    other.join();
}

TEST_F(QtLoopTest, ServesWatchedDescriptorsAndSleepsWhileThereIsNothingToDo) {
    const posix::Descriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    int served = 0;
    const auto watch = loop.watch(event.get(), EPOLLIN, [&](std::uint32_t) {
        std::uint64_t count = 0;
        served += ::read(event.get(), &count, sizeof count) > 0 ? 1 : 0;
    });
    const std::uint64_t one = 1;
    ASSERT_EQ(::write(event.get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    EXPECT_TRUE(runUntil([&] { return served == 1; }));
    bool isOver = false;
    const auto end = loop.after(100ms, [&] { isOver = true; });
    turns = 0;
    EXPECT_TRUE(runUntil([&] { return isOver; }));
    EXPECT_LE(turns, 3);
}

}  // namespace
}  // namespace tessivox::qt
