#include "backend/speech/ParallelWork.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace tessivox::backend {
namespace {

TEST(ParallelWorkTest, DoesEachPieceOnceAndTellsOneAfterTheOther) {
    std::vector<int> times(500);
    std::set<std::size_t> told;
    workInParallel(
        times.size(), [&] { return [&](std::size_t index) { ++times[index]; }; },
        [&](std::size_t index) { told.insert(index); });
    EXPECT_EQ(times, std::vector<int>(500, 1));
    EXPECT_EQ(told.size(), 500u);
    workInParallel(
        0, []() -> Worker { throw std::runtime_error("never made"); }, [](std::size_t) {});
}

TEST(ParallelWorkTest, StopsAtTheFirstErrorAndTellsIt) {
    std::size_t last = 0;
    const auto makeWorker = [&] {
        return [&](std::size_t index) {
            if (index == 3) throw std::runtime_error("broken");
        };
    };
    EXPECT_THROW(workInParallel(100000, makeWorker, [&](std::size_t index) { last = index; }), std::runtime_error);
    EXPECT_LT(last, 99999u);
}

}  // namespace
}  // namespace tessivox::backend
