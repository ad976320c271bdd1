#include "platform/linux/posix/XdgFolders.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "platform/linux/posix/PosixLocalTime.h"
#include "support/TestFolder.h"

namespace tessivox::posix {
namespace {

struct XdgFoldersTest : ::testing::Test {
    testing::TestFolder made;
    const std::filesystem::path home = made.path();
    std::map<std::string, std::string> variables{{"HOME", home}};

    base::StandardFolders folders() const {
        return standardFolders([this](const std::string& name) -> std::optional<std::string> {
            const auto found = variables.find(name);
            if (found == variables.end()) return std::nullopt;
            return found->second;
        });
    }
    std::filesystem::path documentsBy(const std::string& userDirs) {
        std::filesystem::create_directories(home / ".config");
        std::ofstream(home / ".config/user-dirs.dirs") << userDirs;
        return folders().documents;
    }
};

TEST_F(XdgFoldersTest, FallsBackToTheDefaultsAndIgnoresRelativeValues) {
    for (const bool isSet : {false, true}) {
        if (isSet)
            variables.insert(
                {{"XDG_CONFIG_HOME", "cfg"}, {"XDG_DATA_HOME", ""}, {"XDG_STATE_HOME", "st"}, {"TMPDIR", "./tmp"}});
        EXPECT_EQ(folders().configuration, home / ".config");
        EXPECT_EQ(folders().applicationSupport, home / ".local/share");
        EXPECT_EQ(folders().state, home / ".local/state");
        EXPECT_EQ(folders().documents, home / "Documents");
        EXPECT_EQ(folders().temporary, "/tmp");
    }
    variables = {{"XDG_CONFIG_HOME", "/c"}, {"XDG_DATA_HOME", "/d"}, {"XDG_STATE_HOME", "/s"}, {"TMPDIR", "/t"}};
    EXPECT_EQ(folders().configuration, "/c");
    EXPECT_EQ(folders().applicationSupport, "/d");
    EXPECT_EQ(folders().state, "/s");
    EXPECT_EQ(folders().temporary, "/t");
    EXPECT_EQ(folders().documents, std::filesystem::path(::getpwuid(::getuid())->pw_dir) / "Documents");
}

TEST_F(XdgFoldersTest, ReadsTheDocumentsFolderOfUserDirs) {
    EXPECT_EQ(
        documentsBy("# XDG_DOCUMENTS_DIR=\"/no\"\nXDG_MUSIC_DIR=\"/m\"\n  XDG_DOCUMENTS_DIR=\"$HOME/Dok \\\"x\\\"\"\n"),
        home / "Dok \"x\"");
    EXPECT_EQ(documentsBy("XDG_DOCUMENTS_DIR=\"/srv/docs\""), "/srv/docs");
    EXPECT_EQ(documentsBy("XDG_DOCUMENTS_DIR=\"$HOME\"\n"), home);
    EXPECT_EQ(documentsBy("XDG_DOCUMENTS_DIR=\"docs\"\nXDG_DOCUMENTS_DIR=\"$HOMEX/d\"\nXDG_DOCUMENTS_DIR=\n"),
              home / "Documents");
}

struct PosixLocalTimeTest : ::testing::Test {
    ~PosixLocalTimeTest() override {
        ::unsetenv("TZ");
        ::tzset();
    }
    static std::string civil(const char* zone, std::int64_t seconds) {
        ::setenv("TZ", zone, 1);
        const auto time = PosixLocalTime().civil(base::WallTime(std::chrono::seconds(seconds)));
        std::string text;
        for (const int part : {time.year, time.month, time.day, time.hour, time.minute, time.second}) {
            text += std::to_string(part) + " ";
        }
        return text;
    }
};

TEST_F(PosixLocalTimeTest, FollowsTheZoneAndItsSummerTime) {
    EXPECT_EQ(civil("UTC0", 1'700'000'000), "2023 11 14 22 13 20 ");
    EXPECT_EQ(civil("CET-1CEST,M3.5.0,M10.5.0/3", 1'700'000'000), "2023 11 14 23 13 20 ");
    EXPECT_EQ(civil("CET-1CEST,M3.5.0,M10.5.0/3", 1'690'000'000), "2023 7 22 6 26 40 ");
    EXPECT_EQ(civil("UTC0", -1), "1969 12 31 23 59 59 ");
}

}  // namespace
}  // namespace tessivox::posix
