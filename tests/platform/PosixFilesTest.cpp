#include "platform/linux/posix/PosixFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/linux/posix/EventLoop.h"
#include "support/TestFolder.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;
using base::FileAccess;
using base::FileError;
using Path = std::filesystem::path;

std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

int codeOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const FileError& error) {
        return error.code();
    }
    return 0;
}

/// Runs in another process; its exit status comes back.
int inChild(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Every test runs on the disk and in memory.
struct PosixFilesTest : ::testing::TestWithParam<const char*> {
    EventLoop loop;
    PosixFiles files{loop};
    testing::TestFolder made;
    const std::filesystem::path folder = made.path();

    void write(const Path& path, std::string_view text) { files.create(path)->append(bytesOf(text)); }
};

TEST_P(PosixFilesTest, WritesReadsAndCutsAFile) {
    const auto path = folder / "a.caf";
    const auto file = files.create(path);
    EXPECT_EQ(codeOf([&] { (void)files.create(path); }), EEXIST);
    file->append(bytesOf("head"));
    file->writeAt(6, bytesOf("tail"));
    file->append(bytesOf("!"));
    file->sync();
    EXPECT_EQ(files.readAll(path, 100), std::string("head\0\0tail!", 11));
    file->writeAt(0, bytesOf("HE"));
    file->truncate(3);
    EXPECT_EQ(file->size(), 3U);
    std::array<std::byte, 8> buffer{};
    EXPECT_EQ(file->readAt(1, buffer), 2U);
    EXPECT_EQ(file->readAt(3, buffer), 0U);
    EXPECT_EQ(codeOf([&] { files.open(path, FileAccess::read)->append(bytesOf("x")); }), EBADF);
    EXPECT_EQ(codeOf([&] { (void)files.readAll(path, 2); }), EFBIG);
}

TEST_P(PosixFilesTest, KeepsFilesPrivateAndTellsTheirStatus) {
    const auto before = loop.wallNow() - 1s;
    files.makeFolders(folder / "x/y/z/");
    files.makeFolders(folder / "x/y");
    write(folder / "x/y/f", "12345");
    const auto file = files.status(folder / "x/y/f");
    ASSERT_TRUE(file.has_value());
    EXPECT_EQ(file->mode, 0600U);
    EXPECT_EQ(file->size, 5U);
    EXPECT_TRUE(file->isRegular);
    EXPECT_GE(file->birth, before);
    EXPECT_LE(file->birth, loop.wallNow() + 1s);
    struct stat info {};
    ASSERT_EQ(::stat((folder / "x/y/f").c_str(), &info), 0);
    EXPECT_EQ(file->device, info.st_dev);
    EXPECT_EQ(file->inode, info.st_ino);
    EXPECT_EQ(files.status(folder / "x/y")->mode, 0700U);
    EXPECT_TRUE(files.status(folder / "x/y/z")->isFolder);
    EXPECT_EQ(files.list(folder / "x/y").size(), 2U);
    EXPECT_EQ(codeOf([&] { files.makeFolders(folder / "x/y/f"); }), EEXIST);
    EXPECT_FALSE(files.exists(folder / "nothing"));
}

TEST_P(PosixFilesTest, MoveNeverReplacesAndReplaceDoes) {
    write(folder / "new", "new");
    write(folder / "old", "old");
    EXPECT_EQ(codeOf([&] { files.move(folder / "new", folder / "old"); }), EEXIST);
    EXPECT_EQ(codeOf([&] { PosixFiles::moveByLinking(folder / "new", folder / "old"); }), EEXIST);
    EXPECT_EQ(files.readAll(folder / "old", 10), "old");
    EXPECT_EQ(files.readAll(folder / "new", 10), "new");
    files.move(folder / "new", folder / "newer");
    PosixFiles::moveByLinking(folder / "newer", folder / "newest");
    EXPECT_FALSE(files.exists(folder / "new"));
    EXPECT_FALSE(files.exists(folder / "newer"));
    // A folder has one name only, as has a file on some disks.
    files.makeFolders(folder / "sub");
    EXPECT_EQ(codeOf([&] { PosixFiles::moveByLinking(folder / "sub", folder / "other"); }), EINVAL);
    files.replace(folder / "newest", folder / "old");
    EXPECT_EQ(files.readAll(folder / "old", 10), "new");
    files.syncFolder(folder);
    files.remove(folder / "old");
    EXPECT_EQ(codeOf([&] { files.remove(folder / "old"); }), ENOENT);
    EXPECT_FALSE(files.removeIfPossible(folder / "old"));
}

TEST_P(PosixFilesTest, SaysWhyAnOperationFailed) {
    try {
        files.move(folder / "a", folder / "b");
        FAIL() << "moved nothing";
    } catch (const FileError& error) {
        EXPECT_EQ(error.description(), "Cannot move \"" + (folder / "a").string() + "\" to \"" +
                                           (folder / "b").string() + "\": it does not exist.");
        EXPECT_EQ(error.domain(), "posix");
    }
    const auto full = files.open("/dev/full", FileAccess::update);
    try {
        full->writeAt(0, bytesOf("x"));
        FAIL() << "wrote to a full disk";
    } catch (const FileError& error) {
        EXPECT_EQ(error.description(), "Cannot write \"/dev/full\": the disk is full.");
        EXPECT_EQ(error.code(), ENOSPC);
    }
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    (void)codeOf([&] { (void)files.open(folder / "pipe", FileAccess::read); });  // must not hang
}

TEST_P(PosixFilesTest, ALockHoldsAgainstOtherFilesAndProcessesUntilItIsClosed) {
    const auto path = folder / "locked";
    auto file = files.create(path);
    ASSERT_TRUE(file->tryLock(path));
    EXPECT_TRUE(file->tryLock(path));
    EXPECT_FALSE(files.open(path, FileAccess::update)->tryLock(path));
    const auto tryElsewhere = [&] { return PosixFiles(loop).open(path, FileAccess::read)->tryLock(path) ? 1 : 0; };
    EXPECT_EQ(inChild(tryElsewhere), 0);
    file.reset();
    EXPECT_EQ(inChild(tryElsewhere), 1);

    const auto old = files.open(path, FileAccess::update);
    write(folder / "next", "");
    files.replace(folder / "next", path);
    EXPECT_FALSE(old->tryLock(path)) << "the path names another file by now";
    const auto renamed = files.open(path, FileAccess::update);
    renamed->lock();
    EXPECT_FALSE(files.open(path, FileAccess::update)->tryLock(path));
}

TEST_P(PosixFilesTest, KeepsAttributes) {
    const auto path = folder / "a.m4a";
    const std::string name = "user.tessivox.test";
    write(path, "x");
    EXPECT_EQ(files.attribute(path, name), std::nullopt);
    files.removeAttribute(path, name);
    if (codeOf([&] { files.setAttribute(path, name, "v"); }) == ENOTSUP) GTEST_SKIP() << "no attributes here";
    files.setAttribute(path, name, std::string("new\0value", 9));
    EXPECT_EQ(files.attribute(path, name), std::string("new\0value", 9));
    files.setAttribute(path, name, "");
    EXPECT_EQ(files.attribute(path, name), "");
    files.removeAttribute(path, name);
    EXPECT_EQ(files.attribute(path, name), std::nullopt);
    EXPECT_EQ(codeOf([&] { (void)files.attribute(folder / "none", name); }), ENOENT);
}

TEST_P(PosixFilesTest, TellsTheSpaceThisUserHas) {
    struct statvfs info {};
    ASSERT_EQ(::statvfs(folder.c_str(), &info), 0);
    EXPECT_LE(files.freeSpace(folder / "not/yet/there"), std::uint64_t{info.f_blocks} * info.f_frsize);
    EXPECT_GT(files.freeSpace(folder / "not/yet/there"), 0U);
}

TEST_P(PosixFilesTest, TellsOfAnotherProcessesEditOnceATurn) {
    const auto deadline = loop.after(20s, [&] {
        ADD_FAILURE() << "no change was told";
        loop.quit();
    });
    int first = 0;
    int second = 0;
    const auto one = files.watch(folder, [&] { ++first; });
    base::Subscription two = files.watch(folder, [&] {
        ++second;
        two.reset();
        loop.quit();
    });
    EXPECT_EQ(inChild([&] {
                  std::ofstream(folder / "settings.json") << "{}";
                  return std::rename((folder / "settings.json").c_str(), (folder / "moved").c_str());
              }),
              0);
    loop.run();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    write(folder / "again", "x");
    loop.dispatch();
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(codeOf([&] { (void)files.watch(folder / "none", [] {}); }), ENOENT);
}

TEST_P(PosixFilesTest, LeavesNoDescriptorToPrograms) {
    const auto file = files.create(folder / "f");
    const auto watch = files.watch(folder, [] {});
    int open = 0;
    for (int fd = 3; fd < 1024; ++fd) {
        const int flags = ::fcntl(fd, F_GETFD);
        if (flags < 0) continue;
        const auto target = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
        const bool isOurs = target.starts_with(folder.string()) || target.find("inotify") != std::string::npos ||
                            target.find("event") != std::string::npos;
        if (!isOurs) continue;
        ++open;
        EXPECT_TRUE(flags & FD_CLOEXEC) << target;
    }
    EXPECT_GE(open, 4) << "the file, the watch, the loop and its wake-up";
}

INSTANTIATE_TEST_SUITE_P(On, PosixFilesTest, ::testing::Values("/tmp", "/dev/shm"),
                         [](const auto& place) { return place.index == 0 ? "Disk" : "Memory"; });

}  // namespace
}  // namespace tessivox::posix
