#include "platform/linux/posix/QueueThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <future>
#include <utility>
#include <vector>

#include "platform/linux/posix/EventLoop.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;
using base::QueuePriority;

constexpr auto kPatience = 20s;

struct QueueThreadTest : ::testing::Test {
    EventLoop loop;
};

TEST_F(QueueThreadTest, RunsWorkInOrderOnItsNamedThread) {
    QueueThread queue(loop, "com.tessivox.stereo.write-and-much-more", QueuePriority::userInteractive);
    std::promise<std::string> name;
    std::promise<std::vector<int>> order;
    queue.post([&] {
        std::array<char, 32> buffer{};
        ::pthread_getname_np(::pthread_self(), buffer.data(), buffer.size());
        name.set_value(buffer.data());
    });
    std::vector<int> seen;
    for (int number = 0; number < 3; ++number) queue.post([&, number] { seen.push_back(number); });
    queue.post([&] { order.set_value(seen); });
    auto named = name.get_future();
    auto ordered = order.get_future();
    ASSERT_EQ(named.wait_for(kPatience), std::future_status::ready);
    ASSERT_EQ(ordered.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(named.get(), "write-and-much-");
    EXPECT_EQ(ordered.get(), (std::vector{0, 1, 2}));
    EXPECT_EQ(&queue.home(), &loop);
}

TEST_F(QueueThreadTest, ServesUtilityWorkLowerThanTheRest) {
    const auto niceOf = [this](QueuePriority priority) {
        int nice = 0;
        QueueThread(loop, "test", priority).post([&] { nice = ::getpriority(PRIO_PROCESS, 0); });
        return nice;
    };
    EXPECT_EQ(niceOf(QueuePriority::userInitiated), niceOf(QueuePriority::userInteractive));
    EXPECT_GT(niceOf(QueuePriority::utility), niceOf(QueuePriority::userInitiated));
}

TEST_F(QueueThreadTest, DestructionRunsAllThatWasPostedAndSignalled) {
    for (int round = 0; round < 200; ++round) {
        int ran = 0;
        int drained = 0;
        std::unique_ptr<base::WakeSource> source;
        {
            QueueThread queue(loop, "test", QueuePriority::userInteractive);
            source = queue.source([&] { ++drained; });
            for (int count = 0; count < 10; ++count) queue.post([&] { ++ran; });
            queue.post([&] { queue.post([&] { ++ran; }); });
            source->signal();
        }
        ASSERT_EQ(ran, 11);
        ASSERT_EQ(drained, 1);
        source->signal();  // a late capture callback does no harm
    }
}

TEST_F(QueueThreadTest, DrainsAfterTheLastOfManySignals) {
    constexpr int kSignals = 100'000;
    std::atomic<int> sent = 0;
    std::promise<void> last;
    bool done = false;
    QueueThread queue(loop, "test", QueuePriority::userInteractive);
    const auto source = queue.source([&] {
        if (sent == kSignals && !std::exchange(done, true)) last.set_value();
    });
    for (int round = 0; round < kSignals; ++round) {
        ++sent;
        source->signal();
    }
    ASSERT_EQ(last.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST_F(QueueThreadTest, DrainsWhatWasSignalledBeforeWorkWasPosted) {
    QueueThread queue(loop, "test", QueuePriority::userInteractive);
    int pushed = 0;
    int drained = 0;
    std::atomic<int> ring = 0;
    const auto source = queue.source([&] { drained += ring.exchange(0); });
    for (int round = 0; round < 2'000; ++round) {
        ++ring;
        ++pushed;
        source->signal();
        std::promise<int> stop;
        queue.post([&] { stop.set_value(drained); });
        ASSERT_EQ(stop.get_future().get(), pushed);
    }
}

TEST_F(QueueThreadTest, EndingASourceWaitsForItsDrain) {
    QueueThread queue(loop, "test", QueuePriority::userInteractive);
    for (int round = 0; round < 500; ++round) {
        auto value = std::make_unique<int>(0);
        auto source = queue.source([&] { ++*value; });
        source->signal();
        source.reset();
        value.reset();  // a drain that still ran would touch freed memory
    }
}

}  // namespace
}  // namespace tessivox::posix
