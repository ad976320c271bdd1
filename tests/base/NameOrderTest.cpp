#include "base/NameOrder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tessivox::base {
namespace {

TEST(NameOrderTest, OrdersAsPeopleLookForNames) {
    const std::vector<std::string> ordered{"",     "007",    "Agenda",   "élan",    "Zoom",
                                           "zoom", "Zoom 2", "Zoom 010", "zoom 10", "Zoom 99999999999999999999"};
    auto names = ordered;
    std::ranges::reverse(names);
    std::ranges::sort(names, isNameBefore);
    EXPECT_EQ(names, ordered);
}

TEST(NameOrderTest, ComparesWhatIsNoTextByItsBytes) {
    EXPECT_TRUE(isNameBefore("a\xff", "a\xff\xff"));
    EXPECT_FALSE(isNameBefore("\xff", "a"));
    EXPECT_FALSE(isNameBefore("\xff", "\xff"));
}

}  // namespace
}  // namespace tessivox::base
