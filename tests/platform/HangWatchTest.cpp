#include "platform/linux/posix/HangWatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/linux/posix/CrashRecorder.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/TestFolder.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(HangJudgeTest, TellsOnceOfEachStretchWithoutAnAnswer) {
    HangJudge judge;
    const auto verdicts = [&](const std::vector<bool>& answers) {
        std::string result;
        for (const bool isAnswered : answers) result += judge.isHang(isAnswered) ? '!' : '.';
        return result;
    };
    EXPECT_EQ(verdicts({true, false, false, true, false, true}), "......");
    EXPECT_EQ(verdicts({false, false, false, false, false, false, false}), "..!....");
    EXPECT_EQ(verdicts({true, false, false, false, true}), "...!.");
}

/// Stands for a main thread that is stuck until the watch has spoken.
template <typename T>
[[gnu::noinline]] T stallUntil(std::future<T>&& spoken) {
    if (spoken.wait_for(20s) != std::future_status::ready) throw std::runtime_error("nobody noticed the hang");
    return spoken.get();
}

TEST(HangWatchTest, ReportsEachStall) {
    EventLoop loop;
    std::mutex mutex;
    std::optional<std::promise<int>> spoken;
    HangWatch watch(loop, 150ms, [&](std::span<void* const>) {
        const std::lock_guard guard(mutex);
        if (spoken) spoken->set_value(1);
        spoken.reset();
    });
    const auto stall = [&] {
        std::unique_lock lock(mutex);
        auto future = spoken.emplace().get_future();
        lock.unlock();
        EXPECT_EQ(stallUntil(std::move(future)), 1);
    };
    stall();
    loop.dispatch();  // answers, so that the next stall is another one
    stall();
}

// ThreadSanitizer holds signals back until the thread that gets them calls into it.
#ifndef __SANITIZE_THREAD__

struct HangReportTest : ::testing::Test {
    EventLoop loop;
    PosixFiles files{loop};
    testing::TestFolder made;
    const std::filesystem::path folder = made.path();
    telemetry::CrashOptions options;
    HangReportTest() { options.appHangTimeoutInterval = 60ms; }

    /// Stalls until the filter was asked, which answers `isKept`; gives the event that it saw.
    telemetry::CrashEvent stallOnce(bool isKept) {
        std::promise<telemetry::CrashEvent> asked;
        std::atomic<bool> isFirst = true;
        options.beforeSend = [&](telemetry::CrashEvent event) -> std::optional<telemetry::CrashEvent> {
            if (!isFirst.exchange(false)) return std::nullopt;
            asked.set_value(event);
            if (!isKept) return std::nullopt;
            return event;
        };
        CrashRecorder recorder(loop, files, folder);
        recorder.start(options);
        return stallUntil(asked.get_future());
    }
    std::vector<fs::path> reports() const { return {fs::directory_iterator(folder), {}}; }
};

TEST_F(HangReportTest, WritesTheMainThreadsStackWithTheProgramsOwnFramesMarked) {
    const auto event = stallOnce(true);
    ASSERT_EQ(event.exceptions.size(), 1U);
    EXPECT_EQ(event.exceptions[0].type, "App Hanging");
    EXPECT_TRUE(telemetry::beforeSend(event)) << "the test's own code is on the stack";
    EXPECT_FALSE(event.exceptions[0].frames.front().inApp) << "but it waits in the C library";

    ASSERT_EQ(reports().size(), 1U);
    std::ifstream file(reports().front());
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(text.find("\ntype: App Hanging\n"), text.npos) << text;
    EXPECT_NE(text.find(" own +0x"), text.npos) << text;
    EXPECT_EQ(text.find("\nsignal: "), text.npos) << text;
    EXPECT_TRUE(text.ends_with("\nend:\n")) << text;
}

TEST_F(HangReportTest, WritesNothingThatTheFilterDrops) {
    stallOnce(false);
    EXPECT_TRUE(reports().empty());
}

TEST_F(HangReportTest, WatchesNothingWhereHangTrackingIsOff) {
    options.enableAppHangTracking = false;
    CrashRecorder recorder(loop, files, folder);
    recorder.start(options);
    std::size_t threads = 0;
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
        std::ifstream name(thread.path() / "comm");
        std::string text;
        std::getline(name, text);
        if (text == "hang-watch") ++threads;
    }
    EXPECT_EQ(threads, 0U);
}

#endif

}  // namespace
}  // namespace tessivox::posix
