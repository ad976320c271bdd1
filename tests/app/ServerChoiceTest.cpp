#include "app/ServerChoice.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/ports/HttpClient.h"
#include "support/ManualRuntime.h"

namespace tessivox::app {
namespace {

base::Task<std::string> given(std::string url) { co_return url; }

struct ServerChoiceTest : ::testing::Test {
    testing::ManualRuntime time;
    transcription::ServerSettings settings;
    std::optional<std::string> lastURL;
    ServerChoice choice{[this] { return settings; },
                        {[this] {
                             lastURL = "http://127.0.0.1:4711/0123456789abcdef0123456789abcdef/api";
                             return given(*lastURL);
                         },
                         [this] { return lastURL; }}};

    std::string ask() { return testing::await(time, choice.baseURL()); }
};

TEST_F(ServerChoiceTest, TakesThisComputersServerWhereTheUserNamedNone) {
    EXPECT_EQ(choice.shownBaseURL(), "(the server of this computer)");
    EXPECT_EQ(ask(), lastURL);
    EXPECT_EQ(choice.shownBaseURL(), "http://127.0.0.1:4711/***/api");
}

TEST_F(ServerChoiceTest, FollowsASettingWithoutStartingAnything) {
    settings.preference = "https://example.org";
    EXPECT_EQ(ask(), "https://example.org/api");
    EXPECT_EQ(choice.shownBaseURL(), "https://example.org/api");
    EXPECT_EQ(lastURL, std::nullopt);
    settings.environment = "http://example.org";
    try {
        ask();
        FAIL() << "a refused address must not lead to another server";
    } catch (const base::HttpError& error) {
        EXPECT_EQ(error.code(), static_cast<int>(base::HttpErrorCode::badAddress));
    }
    EXPECT_EQ(choice.shownBaseURL(), "(no usable address)");
}

}  // namespace
}  // namespace tessivox::app
