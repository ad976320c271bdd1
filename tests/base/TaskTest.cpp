#include "base/Task.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "base/Completion.h"
#include "base/TaskQueue.h"
#include "base/TaskScope.h"
#include "support/ManualRuntime.h"

namespace tessivox::base {
namespace {

using testing::ManualRuntime;

struct TaskTest : ::testing::Test {
    ManualRuntime time;
    std::string story;

    Task<int> answerAfter(Duration delay, int value) {
        co_await time.sleep(delay);
        co_return value;
    }

    Task<void> addTwo() {
        const int first = co_await answerAfter(2s, 40);
        const int second = co_await answerAfter(3s, 2);
        story = std::to_string(first + second);
    }

    Task<int> failLater() {
        co_await time.sleep(1s);
        throw std::runtime_error("no microphone");
    }
};

TEST_F(TaskTest, RunsAsItReadsAndOnlyInLaterTurns) {
    TaskScope scope(time);
    scope.start(addTwo());
    EXPECT_EQ(story, "");
    time.advance(4999ms);
    EXPECT_EQ(story, "");
    time.advance(1ms);
    EXPECT_EQ(story, "42");
    EXPECT_TRUE(scope.isIdle());
}

TEST_F(TaskTest, AnErrorReachesWhoeverAwaits) { EXPECT_THROW(testing::await(time, failLater()), std::runtime_error); }

TEST_F(TaskTest, DestroyingTheScopeTakesTimersBack) {
    auto scope = std::make_unique<TaskScope>(time);
    scope->start(addTwo());
    time.advance(1s);
    scope.reset();
    time.advance(10s);
    EXPECT_EQ(story, "");
}

TEST_F(TaskTest, AQueuesResultComesHomeAndIsDroppedWhenNobodyWaits) {
    const auto queue = time.makeQueue("com.tessivox.test", QueuePriority::utility);
    const auto compute = [&](TaskQueue& worker) -> Task<void> {
        const auto work = [this] {
            story += "worked ";
            return 7;
        };
        const int result = co_await worker.run(work);
        story += std::to_string(result);
    };
    auto scope = std::make_unique<TaskScope>(time);
    scope->start(compute(*queue));
    time.settle();
    EXPECT_EQ(story, "worked 7");

    time.stall("com.tessivox.test", true);
    scope->start(compute(*queue));
    time.settle();
    scope.reset();
    time.stall("com.tessivox.test", false);
    EXPECT_EQ(story, "worked 7worked ");
}

TEST_F(TaskTest, ACompletionTakesTheFirstAnswerAndSurvivesAWaiterThatLeft) {
    Completion<int> answer;
    const auto wait = [this](Completion<int> completion) -> Task<void> {
        story += std::to_string(co_await completion);
    };
    auto scope = std::make_unique<TaskScope>(time);
    scope->start(wait(answer));
    time.settle();
    answer.succeed(1);
    answer.succeed(2);
    EXPECT_EQ(story, "1");
    const Completion<int> late;
    scope->start(wait(late));
    time.settle();
    scope.reset();
    late.succeed(3);
    EXPECT_EQ(story, "1");
}

}  // namespace
}  // namespace tessivox::base
