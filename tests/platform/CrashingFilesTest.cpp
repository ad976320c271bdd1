#include "support/CrashingFiles.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <set>
#include <thread>

namespace tessivox::testing {
namespace {

using namespace std::chrono_literals;
using base::FileAccess;
using Fault = CrashingFiles::Fault;
using Unsynced = CrashingFiles::Unsynced;

std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

int codeOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const base::FileError& error) {
        return error.code();
    }
    return 0;
}

struct CrashingFilesTest : ::testing::Test {
    CrashingFiles disk;
    CrashingFilesTest() { disk.makeFolders("/docs"); }

    std::string read(const char* path) { return disk.readAll(path, 1'000'000); }
    std::unique_ptr<base::File> made(const char* path, std::string_view text) {
        auto file = disk.create(path);
        file->append(bytesOf(text));
        return file;
    }
    void makeDurable(const char* path, std::string_view text) {
        made(path, text)->sync();
        disk.syncFolder("/docs");
    }
};

TEST_F(CrashingFilesTest, ForgetsContentsAndNamesThatWereNotSynced) {
    const auto kept = made("/docs/kept", "synced");
    kept->sync();
    const auto empty = made("/docs/empty", "never synced");
    disk.syncFolder("/docs");
    kept->append(bytesOf(" and more"));
    kept->writeAt(0, bytesOf("SYNC"));
    const auto nameless = made("/docs/nameless", "synced, but its name is not");
    nameless->sync();
    disk.crash();
    EXPECT_EQ(read("/docs/kept"), "synced");
    EXPECT_EQ(read("/docs/empty"), "");
    EXPECT_FALSE(disk.exists("/docs/nameless"));
    EXPECT_EQ(codeOf([&] { kept->append(bytesOf("x")); }), ESTALE);
    EXPECT_EQ(codeOf([&] { (void)nameless->size(); }), ESTALE);
    made("/docs/new", "the disk goes on")->sync();
    EXPECT_EQ(read("/docs/new"), "the disk goes on");
}

TEST_F(CrashingFilesTest, BringsBackNamesWhoseChangeWasNotSynced) {
    makeDurable("/docs/a", "a");
    makeDurable("/docs/b", "b");
    makeDurable("/docs/c", "c");
    disk.move("/docs/a", "/docs/moved");
    disk.remove("/docs/b");
    disk.replace("/docs/moved", "/docs/c");
    EXPECT_EQ(read("/docs/c"), "a");
    disk.crash();
    EXPECT_EQ(read("/docs/a") + read("/docs/b") + read("/docs/c"), "abc");
    disk.replace("/docs/a", "/docs/c");
    disk.syncFolder("/docs");
    disk.crash();
    EXPECT_EQ(read("/docs/c"), "a");
    EXPECT_FALSE(disk.exists("/docs/a"));
}

TEST_F(CrashingFilesTest, ACrashMayLeavePartsOfWhatWasNotSynced) {
    std::set<std::size_t> sizes;
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
        CrashingFiles another;
        const auto file = another.create("/f");
        const std::string tail(20'000, 't');
        file->append(bytesOf("head"));
        file->sync();
        another.syncFolder("/");
        file->append(bytesOf(tail));
        another.crash(Unsynced::prefix, seed);
        const auto left = another.readAll("/f", 100'000);
        EXPECT_EQ(left, ("head" + tail).substr(0, left.size()));
        EXPECT_GE(left.size(), 4U);
        sizes.insert(left.size());
        another.crash();
        EXPECT_EQ(another.readAll("/f", 100'000), left) << "what is on the disk stays there";
    }
    EXPECT_GT(sizes.size(), 20U);
}

TEST_F(CrashingFilesTest, ACrashMayLeaveZerosAndAKillLeavesEverything) {
    makeDurable("/docs/a", "head");
    disk.open("/docs/a", FileAccess::update)->append(bytesOf("tail"));
    disk.crash(Unsynced::kept);
    EXPECT_EQ(read("/docs/a"), "headtail");
    disk.open("/docs/a", FileAccess::update)->append(bytesOf("more"));
    disk.crash(Unsynced::zeros);
    EXPECT_EQ(read("/docs/a"), std::string("headtail\0\0\0\0", 12));
    disk.open("/docs/a", FileAccess::update)->truncate(2);
    disk.crash();
    EXPECT_EQ(read("/docs/a").size(), 12U);
}

TEST_F(CrashingFilesTest, FailsTheChosenOperationOnce) {
    const auto first = disk.operationCount();
    const auto file = made("/docs/a", "1234");
    disk.status("/docs/a");
    EXPECT_EQ(disk.operationCount(), first + 2);
    disk.failAt(first + 3, Fault::shortWrite);
    disk.failAt(first + 5, Fault::noSpace);
    disk.failAt(first + 6, Fault::ioError);
    EXPECT_EQ(codeOf([&] { file->append(bytesOf("5678")); }), ENOSPC);
    EXPECT_EQ(read("/docs/a"), "123456");
    file->append(bytesOf("x"));
    EXPECT_EQ(codeOf([&] { (void)disk.create("/docs/b"); }), ENOSPC);
    EXPECT_FALSE(disk.exists("/docs/b"));
    EXPECT_EQ(codeOf([&] { file->sync(); }), EIO);
    disk.syncFolder("/docs");
    file->sync();
    disk.crash();
    EXPECT_EQ(read("/docs/a"), std::string(7, '\0')) << "a later sync does not mend one that failed";
}

TEST_F(CrashingFilesTest, AFullDiskStaysFullForWhatNeedsRoom) {
    disk.makeFolders("/other");
    const auto file = made("/docs/a", "1234");
    disk.failFrom(disk.operationCount() + 1, Fault::shortWrite, "/docs");
    EXPECT_EQ(codeOf([&] { file->append(bytesOf("56")); }), ENOSPC);
    EXPECT_EQ(codeOf([&] { file->append(bytesOf("67")); }), ENOSPC);
    EXPECT_EQ(codeOf([&] { (void)disk.create("/docs/b"); }), ENOSPC);
    EXPECT_EQ(read("/docs/a"), "12345");
    file->writeAt(0, bytesOf("X"));
    file->sync();
    disk.move("/docs/a", "/docs/c");
    disk.remove("/docs/c");
    EXPECT_EQ(codeOf([&] { (void)disk.create("/other/b"); }), 0);
    disk.heal();
    EXPECT_EQ(codeOf([&] { (void)disk.create("/docs/b"); }), 0);
    disk.failFrom(disk.operationCount() + 1, Fault::ioError);
    EXPECT_EQ(codeOf([&] { disk.remove("/docs/b"); }), EIO);
    EXPECT_TRUE(disk.exists("/docs/b"));
}

}  // namespace
}  // namespace tessivox::testing
