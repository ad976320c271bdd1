#include "transcription/DeviceIdentity.h"

#include <gtest/gtest.h>

#include <string>

#include "support/CrashingFiles.h"
#include "support/MemoryPreferences.h"

namespace tessivox::transcription {
namespace {

const std::string kHere = "https://example.org/api";

struct DeviceIdentityTest : ::testing::Test {
    testing::CrashingFiles files;
    testing::MemoryPreferences preferences;
    int made = 0;
    DeviceIdentity identity = start();

    DeviceIdentity start() {
        return {preferences, files, "/state/Tessivox/token.json", [this] { return "UUID-" + std::to_string(++made); }};
    }
};

TEST_F(DeviceIdentityTest, IsOneForLife) {
    EXPECT_EQ(identity.deviceIdentifier(), "UUID-1");
    EXPECT_EQ(start().deviceIdentifier(), "UUID-1");
    preferences.set("deviceID", "two\nlines");
    EXPECT_EQ(identity.deviceIdentifier(), "UUID-2") << "no header can carry it";
}

TEST_F(DeviceIdentityTest, GivesATokenToTheOriginItCameFromAlone) {
    identity.storeDeviceToken(kHere, "T");
    EXPECT_EQ(files.status("/state/Tessivox/token.json")->mode, 0600U);
    EXPECT_EQ(identity.deviceToken("https://EXAMPLE.org:443/other/api"), "T");
    for (const auto* other : {"https://example.org:444/api", "https://example.com/api", "http://127.0.0.1/api",
                              "http://example.org/api", "nonsense"}) {
        EXPECT_EQ(identity.deviceToken(other), std::nullopt) << other;
    }
    files.crash();
    EXPECT_EQ(identity.deviceToken(kHere), "T");
}

TEST_F(DeviceIdentityTest, RemovesOnlyTheTokenThatWasRefused) {
    auto other = start();
    other.storeDeviceToken(kHere, "NEW");
    identity.removeDeviceToken("OLD");
    EXPECT_EQ(identity.deviceToken(kHere), "NEW");
    identity.removeDeviceToken("NEW");
    EXPECT_EQ(other.deviceToken(kHere), std::nullopt);
    identity.removeDeviceToken("NEW");
}

TEST_F(DeviceIdentityTest, TakesADamagedFileForNone) {
    for (const auto* text : {"", "{", "[]", R"({"token":"T"})", R"({"origin":"https://example.org:443","token":5})",
                             R"({"origin":"https://example.org:443","token":"a\nb"})"}) {
        files.put("/state/Tessivox/token.json", text);
        EXPECT_EQ(identity.deviceToken(kHere), std::nullopt) << text;
        identity.removeDeviceToken("T");
    }
    identity.storeDeviceToken(kHere, "T");
    EXPECT_EQ(identity.deviceToken(kHere), "T");
}

}  // namespace
}  // namespace tessivox::transcription
