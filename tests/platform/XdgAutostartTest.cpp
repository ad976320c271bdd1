#include "platform/linux/posix/XdgAutostart.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/CrashingFiles.h"

namespace tessivox::posix {
namespace {

using testing::CrashingFiles;

const std::filesystem::path kEntry = "/home/me/.config/autostart/tessivox.desktop";

TEST(XdgAutostartTest, WritesAnEntryWhoseCommandSurvivesItsQuoting) {
    CrashingFiles disk;
    XdgAutostart item(disk, "/home/me/.config", "/opt/my apps/100%/$x", {"--tray", "a\\b \"c\"`"});
    item.registerItem();
    item.registerItem();
    disk.crash();
    const auto text = disk.readAll(kEntry, 10'000);
    // The value's own escapes double each backslash of the quoted argument.
    EXPECT_NE(text.find("\nExec=\"/opt/my apps/100%%/\\\\$x\" \"--tray\" \"a\\\\\\\\b \\\\\"c\\\\\"\\\\`\"\n"),
              std::string::npos)
        << text;
    EXPECT_TRUE(text.starts_with("[Desktop Entry]\nType=Application\n"));
    EXPECT_EQ(disk.list("/home/me/.config/autostart").size(), 1U);
    item.unregisterItem();
    item.unregisterItem();
    disk.crash();
    EXPECT_FALSE(disk.exists(kEntry));
}

TEST(XdgAutostartTest, AFailureLeavesTheOldEntryWhole) {
    for (std::uint64_t step = 1; step <= 4; ++step) {
        CrashingFiles disk;
        XdgAutostart(disk, "/home/me/.config", "/old", {}).registerItem();
        const auto before = disk.readAll(kEntry, 10'000);
        disk.failFrom(disk.operationCount() + step, CrashingFiles::Fault::ioError);
        XdgAutostart item(disk, "/home/me/.config", "/new", {});
        EXPECT_THROW(item.registerItem(), base::FileError) << step;
        disk.crash(CrashingFiles::Unsynced::kept);
        disk.heal();
        EXPECT_EQ(disk.readAll(kEntry, 10'000), before) << step;
        item.registerItem();
        EXPECT_NE(disk.readAll(kEntry, 10'000).find("/new"), std::string::npos);
    }
}

}  // namespace
}  // namespace tessivox::posix
