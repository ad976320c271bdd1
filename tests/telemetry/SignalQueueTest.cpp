#include "services/telemetry/SignalQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/CrashingFiles.h"

namespace tessivox::telemetry {
namespace {

using Lines = std::vector<std::string>;
using testing::CrashingFiles;

const std::filesystem::path kFile = "/state/Tessivox/signals.jsonl";

std::string numbered(int number) { return R"({"n":)" + std::to_string(number) + "}"; }

struct SignalQueueTest : ::testing::Test {
    CrashingFiles files;

    Lines stored() { return SignalQueue(files, kFile).front(SignalQueue::kMostSignals).lines; }
    void add(int from, int to) {
        SignalQueue queue(files, kFile);
        for (int number = from; number < to; ++number) queue.add(numbered(number));
    }
};

TEST_F(SignalQueueTest, OutlivesTheProcessAndForgetsWhatWasRemoved) {
    add(0, 3);
    EXPECT_EQ(stored(), (Lines{numbered(0), numbered(1), numbered(2)}));
    {
        SignalQueue queue(files, kFile);
        const auto batch = queue.front(2);
        EXPECT_EQ(batch.lines, (Lines{numbered(0), numbered(1)}));
        queue.add(numbered(3));
        queue.removeThrough(batch.last);
        queue.removeThrough(batch.last);
    }
    EXPECT_EQ(stored(), (Lines{numbered(2), numbered(3)}));
    {
        SignalQueue queue(files, kFile);
        queue.clear();
        EXPECT_TRUE(queue.isEmpty());
    }
    EXPECT_EQ(stored(), Lines{});
}

TEST_F(SignalQueueTest, KeepsWhatWasWrittenWhenTheProcessDies) {
    auto queue = std::make_unique<SignalQueue>(files, kFile);
    queue->add(numbered(0));
    queue->add(numbered(1));
    files.crash(CrashingFiles::Unsynced::kept);
    EXPECT_EQ(stored(), (Lines{numbered(0), numbered(1)}));
}

TEST_F(SignalQueueTest, DropsATornLineAndGoesOnAfterIt) {
    files.put(kFile, numbered(0) + "\ngarbage\n" + numbered(1) + "\n{\"n\":");
    add(2, 3);
    EXPECT_EQ(stored(), (Lines{numbered(0), numbered(1), numbered(2)}));
}

TEST_F(SignalQueueTest, DropsTheOldestBeyondItsBounds) {
    add(0, 2500);
    const auto lines = stored();
    EXPECT_LE(lines.size(), SignalQueue::kMostSignals);
    EXPECT_GE(lines.size(), SignalQueue::kMostSignals * 9 / 10);
    EXPECT_EQ(lines.back(), numbered(2499));
    EXPECT_EQ(lines.front(), numbered(2500 - static_cast<int>(lines.size())));
    {
        SignalQueue queue(files, kFile);
        const std::string big = "{" + std::string(90'000, ' ') + "}";
        for (int number = 0; number < 50; ++number) {
            queue.add(big);
            EXPECT_LE(files.status(kFile)->size, SignalQueue::kMostBytes);
        }
        queue.add("{" + std::string(200'000, ' ') + "}");
        EXPECT_EQ(queue.front(1000).lines.back().size(), big.size()) << "one that is too long is dropped itself";
    }
    files.put(kFile, std::string(SignalQueue::kMostBytes * 5, 'x'));
    EXPECT_EQ(stored(), Lines{}) << "nor is a foreign file read whole";
}

TEST_F(SignalQueueTest, KeepsSignalsInMemoryWhereTheFileIsTakenOrCannotBeWritten) {
    const SignalQueue first(files, kFile);
    SignalQueue second(files, kFile);
    second.add(numbered(7));
    EXPECT_EQ(second.front(10).lines, Lines{numbered(7)});
    EXPECT_EQ(files.status(kFile)->size, 0U);

    files.failFrom(files.operationCount() + 1, CrashingFiles::Fault::noSpace);
    SignalQueue third(files, "/elsewhere/signals.jsonl");
    third.add(numbered(8));
    EXPECT_EQ(third.front(10).lines, Lines{numbered(8)});
}

TEST_F(SignalQueueTest, BringsTheFileUpToDateAfterAWriteHasFailed) {
    const auto leftBy = [](auto change) {
        CrashingFiles disk;
        SignalQueue queue(disk, kFile);
        queue.add(numbered(0));
        disk.failAt(disk.operationCount() + 1, CrashingFiles::Fault::shortWrite);
        queue.add(numbered(1));
        change(queue, disk);
        disk.crash(CrashingFiles::Unsynced::kept);
        disk.heal();
        return SignalQueue(disk, kFile).front(10).lines;
    };
    EXPECT_EQ(leftBy([](auto& queue, auto&) { queue.add(numbered(2)); }),
              (Lines{numbered(0), numbered(1), numbered(2)}));
    EXPECT_EQ(leftBy([](auto& queue, auto&) { queue.removeThrough(queue.front(1).last); }), Lines{numbered(1)});
    EXPECT_EQ(leftBy([](auto& queue, auto&) { queue.clear(); }), Lines{});
    EXPECT_EQ(leftBy([](auto& queue, auto& disk) {
                  disk.failFrom(disk.operationCount() + 1, CrashingFiles::Fault::noSpace);
                  queue.clear();
              }),
              Lines{})
        << "also while the disk stays full";
}

/// At whichever operation the disk gives out or the machine stops, the next start reads whole signals in order.
TEST_F(SignalQueueTest, StaysReadableWhereverItIsInterrupted) {
    const auto work = [](base::Files& disk) {
        SignalQueue queue(disk, kFile);
        for (int number = 0; number < 3; ++number) queue.add(numbered(number));
        queue.removeThrough(queue.front(1).last);
        queue.add(numbered(3));
    };
    work(files);
    const auto operations = files.operationCount();
    for (std::uint64_t at = 1; at <= operations; ++at) {
        for (const bool isHalt : {false, true}) {
            CrashingFiles disk;
            if (isHalt) {
                disk.haltAt(at);
            } else {
                disk.failAt(at, CrashingFiles::Fault::shortWrite);
            }
            work(disk);
            disk.crash(CrashingFiles::Unsynced::prefix, at);
            disk.heal();
            const auto lines = SignalQueue(disk, kFile).front(10).lines;
            EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end())) << at;
            for (const auto& line : lines) EXPECT_EQ(line.size(), numbered(0).size()) << at << " " << line;
        }
    }
}

}  // namespace
}  // namespace tessivox::telemetry
