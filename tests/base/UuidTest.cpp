#include "base/Uuid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

namespace tessivox::base {
namespace {

RandomBytes all(std::byte value) {
    return [value](std::span<std::byte> bytes) { std::ranges::fill(bytes, value); };
}

TEST(UuidTest, KeepsTheRandomBitsAroundThoseOfVersionAndVariant) {
    std::array<std::byte, 16> counted{};
    for (std::size_t index = 0; index < counted.size(); ++index) counted[index] = static_cast<std::byte>(index * 0x11);

    EXPECT_EQ(uuidText(counted), "00112233-4455-4677-8899-AABBCCDDEEFF");
    EXPECT_EQ(makeUuid(all(std::byte{0x00})), "00000000-0000-4000-8000-000000000000");
    EXPECT_EQ(makeUuid(all(std::byte{0xFF})), "FFFFFFFF-FFFF-4FFF-BFFF-FFFFFFFFFFFF");
}

TEST(UuidTest, KnowsItsOwnTextFromOthers) {
    EXPECT_TRUE(isUuidText("00112233-4455-4677-8899-AABBCCDDEEFF"));
    for (const auto* other : {"", "00112233-4455-4677-8899-AABBCCDDEEF", "00112233-4455-4677-8899-AABBCCDDEEFF0",
                              "00112233-4455-4677-8899-aabbccddeeff", "00112233-4455-4677-8899-AABBCCDDEEFG",
                              "001122334-455-4677-8899-AABBCCDDEEFF"})
        EXPECT_FALSE(isUuidText(other)) << other;
}

}  // namespace
}  // namespace tessivox::base
