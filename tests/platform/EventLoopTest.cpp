#include "platform/linux/posix/EventLoop.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "base/TaskScope.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;

struct EventLoopTest : ::testing::Test {
    EventLoop loop;
    std::string story;
    base::Timer deadline = loop.after(20s, [this] {
        ADD_FAILURE() << "the loop did not come to its end; story so far: " << story;
        loop.quit();
    });

    void note(char letter) { story += letter; }
};

TEST_F(EventLoopTest, RunsSourcesThenPostedWorkThenTimersInOrder) {
    const auto source = loop.source([this] { note('s'); });
    const auto first = loop.after(0ms, [this] { note('3'); });
    const auto second = loop.after(0ms, [this] { note('4'); });
    loop.post([this] {
        note('1');
        loop.post([this] {
            note('5');
            loop.quit();
        });
    });
    loop.post([this, &source] {
        note('2');
        source->signal();
    });
    source->signal();
    loop.run();
    EXPECT_EQ(story, "s12s345");
}

TEST_F(EventLoopTest, PostedWorkRunsInALaterTurnAndATurnEnds) {
    std::function<void()> again = [&] {
        note('p');
        loop.post(again);
    };
    loop.post(again);
    loop.dispatch();
    EXPECT_EQ(story, "p");
    loop.dispatch();
    EXPECT_EQ(story, "pp");
}

TEST_F(EventLoopTest, DrainsAfterTheLastOfManySignals) {
    constexpr int kSignals = 100'000;
    std::atomic<int> sent = 0;
    int drains = 0;
    const auto source = loop.source([&] {
        ++drains;
        if (sent == kSignals) loop.quit();
    });
    std::thread sender([&] {
        for (int round = 0; round < kSignals; ++round) {
            ++sent;
            source->signal();
        }
    });
    loop.run();
    sender.join();
    EXPECT_GE(drains, 1);
    EXPECT_LE(drains, kSignals);
}

TEST_F(EventLoopTest, KeepsTheOrderOfEachPostingThread) {
    constexpr int kPosts = 10'000;
    std::array<int, 3> next{};
    int left = 3 * kPosts;
    std::vector<std::thread> threads;
    for (std::size_t who = 0; who < next.size(); ++who) {
        threads.emplace_back([&, who] {
            for (int number = 0; number < kPosts; ++number) {
                loop.post([&, who, number] {
                    EXPECT_EQ(next[who]++, number);
                    if (--left == 0) loop.quit();
                });
            }
        });
    }
    loop.run();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(left, 0);
}

TEST_F(EventLoopTest, EndsASourceWithItsHandleEvenFromItsOwnDrain) {
    std::unique_ptr<base::WakeSource> source;
    source = loop.source([&] {
        note('d');
        source.reset();
    });
    auto other = loop.source([this] { note('o'); });
    source->signal();
    other->signal();
    other.reset();
    loop.dispatch();
    loop.dispatch();
    EXPECT_EQ(story, "d");
}

TEST_F(EventLoopTest, TellsOfADescriptorUntilItsWatchEnds) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const Descriptor reading(pipe[0]);
    const Descriptor writing(pipe[1]);
    base::Subscription watch = loop.watch(reading.get(), EPOLLIN, [&](std::uint32_t events) {
        EXPECT_EQ(events, std::uint32_t{EPOLLIN});
        note('r');
        if (story == "rr") {
            watch.reset();
            loop.post([this] { loop.quit(); });
        }
    });
    std::thread writer([&] { ASSERT_EQ(::write(writing.get(), "x", 1), 1); });
    loop.run();
    writer.join();
    loop.dispatch();
    EXPECT_EQ(story, "rr");
    EXPECT_THROW((void)loop.watch(-1, EPOLLIN, nullptr), std::system_error);
}

TEST_F(EventLoopTest, DropsPostedWorkOnceClosed) {
    loop.post([this] { note('x'); });
    loop.post([this] { note('x'); });
    loop.close();
    loop.post([this] { note('x'); });
    loop.dispatch();
    EXPECT_EQ(story, "");
}

TEST_F(EventLoopTest, CanBeDrivenByAnotherLoop) {
    const auto timer = loop.after(1h, [] {});
    EXPECT_EQ(loop.nextDeadline().has_value(), true);
    Descriptor outer(::epoll_create1(EPOLL_CLOEXEC));
    epoll_event event{};
    event.events = EPOLLIN;
    ASSERT_EQ(::epoll_ctl(outer.get(), EPOLL_CTL_ADD, loop.fd(), &event), 0);
    EXPECT_EQ(::epoll_wait(outer.get(), &event, 1, 0), 0) << "an idle loop must not ask for turns";
    std::thread poster([this] { loop.post([this] { note('p'); }); });
    EXPECT_EQ(::epoll_wait(outer.get(), &event, 1, 20'000), 1);
    poster.join();
    loop.dispatch();
    EXPECT_EQ(story, "p");
    EXPECT_EQ(::epoll_wait(outer.get(), &event, 1, 0), 0) << "a turn must take back the wake-up";
}

TEST_F(EventLoopTest, QuitBeforeRunAndFromAnotherThreadEndsIt) {
    loop.quit();
    loop.run();
    std::thread quitter([this] { loop.quit(); });
    loop.run();
    quitter.join();
}

TEST_F(EventLoopTest, TellsWhetherItWaits) {
    bool didWaitAtWork = false;
    std::thread observer([&] {
        while (!loop.isWaiting()) std::this_thread::yield();
        loop.post([&] {
            didWaitAtWork = loop.isWaiting();
            loop.quit();
        });
    });
    loop.run();
    observer.join();
    EXPECT_FALSE(didWaitAtWork);
    EXPECT_FALSE(loop.isWaiting());
}

TEST_F(EventLoopTest, BringsAQueuesResultHome) {
    const auto queue = loop.makeQueue("com.tessivox.test.sum", base::QueuePriority::utility);
    const auto task = [](EventLoop& home, base::TaskQueue& worker, int& result) -> base::Task<void> {
        const auto add = [] { return 40 + 2; };
        result = co_await worker.run(add);
        const base::Duration delay = 1ms;
        co_await home.sleep(delay);
        home.quit();
    };
    int result = 0;
    base::TaskScope scope(loop);
    scope.start(task(loop, *queue, result));
    loop.run();
    EXPECT_EQ(result, 42);
}

}  // namespace
}  // namespace tessivox::posix
