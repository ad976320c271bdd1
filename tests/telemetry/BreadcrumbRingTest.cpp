#include "services/telemetry/BreadcrumbRing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace tessivox::telemetry {
namespace {

std::vector<std::string> linesOf(const BreadcrumbRing& ring) {
    std::vector<std::string> lines;
    ring.forEach([&](const BreadcrumbRing::Record& record) { lines.emplace_back(record.line()); });
    return lines;
}

Breadcrumb said(std::string message) { return {std::move(message), "test", BreadcrumbLevel::info, {}}; }

TEST(BreadcrumbRingTest, KeepsTheNewestInOrder) {
    BreadcrumbRing ring;
    EXPECT_TRUE(linesOf(ring).empty());
    for (int number = 0; number < 100; ++number)
        ring.add(base::WallTime(base::Duration(number)), said(std::to_string(number)));
    const auto lines = linesOf(ring);
    ASSERT_EQ(lines.size(), BreadcrumbRing::kCapacity);
    EXPECT_EQ(lines.front(), "info test: 36");
    EXPECT_EQ(lines.back(), "info test: 99");
    std::int64_t time = 36;
    ring.forEach([&](const auto& record) { EXPECT_EQ(record.time.time_since_epoch().count(), time++); });
}

TEST(BreadcrumbRingTest, WritesOneLineWhateverItIsGivenAndCutsBetweenCharacters) {
    BreadcrumbRing ring;
    ring.add({}, {"Line\nfeed", "error", BreadcrumbLevel::error, {{"b", "2"}, {"a", "\x1b[1m"}}});
    ring.add({}, said(std::string(400, 'x')));
    std::string wide;
    for (int count = 0; count < 200; ++count) wide += "\u00e9";
    ring.add({}, said(wide));
    const auto lines = linesOf(ring);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "error error: Line feed a= [1m b=2");
    EXPECT_EQ(lines[1], "info test: " + std::string(BreadcrumbRing::kLineSize - 11, 'x'));
    EXPECT_EQ(lines[2], "info test: " + wide.substr(0, 228)) << "the half of a character is left out";
}

/// Each line repeats one letter, so that a line mixed from two shows.
TEST(BreadcrumbRingTest, ShowsAReaderOnlyWholeLinesWhileManyThreadsWrite) {
    BreadcrumbRing ring;
    std::atomic<bool> isOver = false;
    std::vector<std::thread> writers;
    for (char letter = 'a'; letter < 'd'; ++letter) {
        writers.emplace_back([&ring, letter] {
            for (std::size_t number = 0; number < 4000; ++number)
                ring.add({}, said(std::string(1 + number % 200, letter)));
        });
    }
    std::size_t seen = 0;
    std::thread reader([&] {
        do {
            ring.forEach([&](const BreadcrumbRing::Record& record) {
                const auto message = record.line().substr(11);
                ASSERT_EQ(message.find_first_not_of(message.front()), message.npos) << record.line();
                ++seen;
            });
        } while (!isOver);
    });
    for (auto& writer : writers) writer.join();
    isOver = true;
    reader.join();
    EXPECT_GE(seen, BreadcrumbRing::kCapacity / 2);
    EXPECT_GE(linesOf(ring).size(), BreadcrumbRing::kCapacity - 3) << "only overtaken writers lose their line";
}

}  // namespace
}  // namespace tessivox::telemetry
