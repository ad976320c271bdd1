#include "base/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tessivox::base {
namespace {

TEST(TextTest, FindsAndRepairsWhatIsNotUTF8WhereverItStands) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"\xFF", "\uFFFD"},
        {"caf\xE9 noir", "caf\uFFFD noir"},
        {"\xC0\xAF", "\uFFFD\uFFFD"},            // overlong
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},  // a surrogate
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xE2\x82", "\uFFFD\uFFFD"},  // cut off
        {"\x80\u20AC", "\uFFFD\u20AC"},
    };
    // In front of it stand blocks that are looked at as a whole, or a part of one.
    for (const std::size_t before : {0U, 1U, 63U, 64U, 65U, 200U}) {
        const std::string plain(before, 'x');
        for (const auto& [broken, repaired] : cases) {
            EXPECT_FALSE(isUTF8(plain + broken + plain)) << before << repaired;
            EXPECT_EQ(repairedUTF8(plain + broken + plain), plain + repaired + plain);
        }
        const auto sound = plain + "\u00E4\u20AC\U0001F600" + plain;
        EXPECT_TRUE(isUTF8(sound));
        EXPECT_EQ(repairedUTF8(sound), sound);
    }
}

}  // namespace
}  // namespace tessivox::base
