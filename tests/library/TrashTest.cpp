#include "library/Trash.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <utility>
#include <vector>

#include "support/CrashingFiles.h"
#include "support/ForwardingFiles.h"
#include "support/ManualRuntime.h"
#include "support/QuietDesktop.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

const Path kUsb = "/media/usb";
const Path kTrash = "/home/user/data/Trash";

/// A home disk, a stick, and what is special about some folders.
struct TwoDisks final : testing::ForwardingFiles {
    using ForwardingFiles::ForwardingFiles;
    struct Oddity {
        bool isLink = false;
        std::uint32_t owner = 0;
        unsigned mode = 0700;
    };
    std::map<Path, Oddity> oddities;
    bool isHomeBound = false;  ///< the home's trash is on a mount of its own, which its status does not tell

    static std::uint64_t deviceOf(const Path& path) { return path.native().starts_with(kUsb.native()) ? 2 : 1; }
    std::optional<base::FileStatus> status(const Path& path) const override {
        auto found = ForwardingFiles::status(path);
        if (found) found->device = deviceOf(path);
        return found;
    }
    std::optional<base::FileStatus> linkStatus(const Path& path) const override {
        auto found = status(path);
        const auto oddity = oddities.find(path);
        if (!found || oddity == oddities.end()) return found;
        found->isFolder = found->isFolder && !oddity->second.isLink;
        found->owner = oddity->second.owner;
        found->mode = oddity->second.mode;
        return found;
    }
    void move(const Path& from, const Path& to) override {
        const bool intoHomeTrash = isHomeBound && to.native().starts_with(kTrash.native());
        if (deviceOf(from) != deviceOf(to) || intoHomeTrash) throw base::FileError(EXDEV, "Two disks.");
        ForwardingFiles::move(from, to);
    }
};

class TrashTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles disk;
    TwoDisks files{disk};
    testing::UtcTime utc;
    Trash trash{files, utc, time, "/home/user/data"};

    void SetUp() override {
        time.setWallTime(base::WallTime(std::chrono::sys_days(std::chrono::year(2026) / 3 / 2)) +
                         std::chrono::hours(9));
    }
    std::string read(const Path& path) { return disk.readAll(path, 1000); }
};

TEST_F(TrashTest, AFileOnTheHomeDiskGoesToTheHomeTrashWithItsOriginAndDate) {
    disk.put("/home/user/R/caf\xe9 \"1\"%\n.m4a", "sound");
    const auto placed = trash.moveToTrash("/home/user/R/../R/caf\xe9 \"1\"%\n.m4a");
    EXPECT_EQ(placed, kTrash / "files" / "caf\xe9 \"1\"%\n.m4a");
    EXPECT_EQ(read(placed), "sound");
    EXPECT_EQ(read(kTrash / "info" / "caf\xe9 \"1\"%\n.m4a.trashinfo"),
              "[Trash Info]\nPath=/home/user/R/caf%E9%20%221%22%25%0A.m4a\nDeletionDate=2026-03-02T09:00:00\n");
    EXPECT_FALSE(disk.exists("/home/user/R/caf\xe9 \"1\"%\n.m4a"));
}

TEST_F(TrashTest, ATakenNameGetsANumberWhicheverOfItsTwoFilesTakesIt) {
    disk.put(kTrash / "info/a.m4a.trashinfo", "another's");
    disk.put(kTrash / "files/a 2.m4a", "another's");
    disk.put("/home/user/a.m4a", "sound");
    EXPECT_EQ(trash.moveToTrash("/home/user/a.m4a"), kTrash / "files/a 3.m4a");
    EXPECT_EQ(disk.list(kTrash / "info").size(), 2U) << "no description stays without its file";
    EXPECT_EQ(read(kTrash / "info/a.m4a.trashinfo"), "another's");
}

TEST_F(TrashTest, LongNamesAreCutBetweenCharactersAndKeepExtensionAndNumber) {
    std::string umlauts;
    while (umlauts.size() < 250) umlauts += "\u00fc";
    EXPECT_EQ(Trash::candidateName(umlauts + ".m4a", 1), umlauts.substr(0, 236) + ".m4a");
    EXPECT_EQ(Trash::candidateName("x" + umlauts + ".m4a", 1), "x" + umlauts.substr(0, 234) + ".m4a");
    EXPECT_EQ(Trash::candidateName(umlauts + ".m4a", 12), umlauts.substr(0, 232) + " 12.m4a");
    const std::string wild(255, '\xbf');
    EXPECT_EQ(Trash::candidateName(wild, 1).size(), 240U);
    EXPECT_EQ(Trash::candidateName(std::string(100, 'x') + "." + std::string(154, 'y'), 1).size(), 240U);
    EXPECT_EQ(Trash::candidateName(".profile", 2), ".profile 2");
    EXPECT_EQ(Trash::candidateName("a.m4a", 2), "a 2.m4a");
}

TEST_F(TrashTest, AFileOnAnotherDiskGoesToTheTrashOfThatDiskWithAPathRelativeToItsTop) {
    disk.put(kUsb / "talks/a.m4a", "sound");
    EXPECT_EQ(trash.moveToTrash(kUsb / "talks/a.m4a"), kUsb / ".Trash-0/files/a.m4a");
    EXPECT_NE(read(kUsb / ".Trash-0/info/a.m4a.trashinfo").find("\nPath=talks/a.m4a\n"), std::string::npos);

    disk.put(kUsb / "talks/b.m4a", "sound");
    disk.makeFolders(kUsb / ".Trash");
    files.oddities[kUsb / ".Trash"].mode = 01777;
    EXPECT_EQ(trash.moveToTrash(kUsb / "talks/b.m4a"), kUsb / ".Trash/0/files/b.m4a");
}

TEST_F(TrashTest, AFolderThatAnotherUserMayHavePlantedIsNotUsed) {
    const auto shared = kUsb / ".Trash";
    disk.makeFolders(shared / "0");
    for (const auto& [path, oddity] : std::vector<std::pair<Path, TwoDisks::Oddity>>{
             {shared, {.mode = 0777}}, {shared, {.isLink = true, .mode = 01777}}, {shared / "0", {.owner = 1000}}}) {
        disk.put(kUsb / "a.m4a", "sound");
        files.oddities = {{shared, {.mode = 01777}}};
        files.oddities[path] = oddity;
        EXPECT_EQ(trash.moveToTrash(kUsb / "a.m4a").parent_path(), kUsb / ".Trash-0/files");
    }
}

TEST_F(TrashTest, WithoutAUsableTrashFolderTheFileStaysAndTheUserIsTold) {
    disk.put(kUsb / "a.m4a", "sound");
    disk.put(kUsb / ".Trash-0", "a file of that name");
    try {
        trash.moveToTrash(kUsb / "a.m4a");
        FAIL() << "found a place";
    } catch (const TrashError& error) {
        EXPECT_EQ(error.description(),
                  "\"a.m4a\" cannot be moved to the Trash, because its disk has no trash folder that you can write to. "
                  "Delete the file yourself, or move it to another disk first.");
    }
    EXPECT_EQ(read(kUsb / "a.m4a"), "sound");
}

TEST_F(TrashTest, AHomeTrashThatCannotBeReachedByRenamingGivesWayToTheDisksOwn) {
    files.isHomeBound = true;
    disk.put("/home/user/a.m4a", "sound");
    EXPECT_EQ(trash.moveToTrash("/home/user/a.m4a"), "/.Trash-0/files/a.m4a");
    EXPECT_TRUE(disk.list(kTrash / "info").empty());
}

}  // namespace
}  // namespace tessivox::library
