#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "audio/CafFile.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "program/ProgramHome.h"
#include "support/DecodeAudio.h"

namespace tessivox::testing {
namespace {

constexpr std::size_t kRate = 48000;

/// The real program with folders on disks of a few kilobytes, which only this process and its children see.
struct FullDiskTest : ProgramHome {
    SoundServer server{SoundServerKind::pulseAudio};
    // Silence would be encoded into next to nothing.
    ChildProcess left = server.play("micfeed", {"sine", "440"}), right = server.play("speakers", {"sine", "880"});
    Path output = home / "recordings/talk.m4a";
    std::vector<Path> mounted;

    std::string printed;
    int status = -1;

    void SetUp() override {
        soundServer = server.address();
        recordings = output.parent_path();
        std::filesystem::create_directories(data);
        std::filesystem::create_directories(recordings);
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "making small disks takes root and mount namespaces: " << std::strerror(errno);
    }
    ~FullDiskTest() override {
        for (const auto& disk : mounted) ::umount2(disk.c_str(), MNT_DETACH);
    }

    void mountSmallDisk(const Path& place, const std::string& options) {
        std::filesystem::create_directories(place);
        ASSERT_EQ(::mount("tmpfs", place.c_str(), "tmpfs", 0, options.c_str()), 0) << std::strerror(errno);
        mounted.push_back(place);
    }
    void record() {
        auto program = start({"record", "--for", "5s", "--output", output.string()});
        printed = program.readAll();
        status = program.wait();
    }
    std::size_t rawFrames(const Path& path) const {
        posix::EventLoop loop;
        posix::PosixFiles files(loop);
        return audio::CafReader(files.open(path, base::FileAccess::read)).frames();
    }
};

TEST_F(FullDiskTest, WithoutRoomForTemporaryFilesTheRecordingIsSavedOnlyIfItIsWhole) {
    mountSmallDisk(data, "size=1m");  // less than three seconds
    record();
    EXPECT_NE(errors().find("the disk is full"), std::string::npos) << errors();
    ASSERT_EQ(printed, output.string() + "\n") << errors();
    EXPECT_EQ(status, 0);
    const auto frames = decodeAudio(output).frames();
    EXPECT_GE(frames, 4 * kRate);
    EXPECT_TRUE(std::filesystem::is_empty(data / "Tessivox/Incomplete"));
}

TEST_F(FullDiskTest, WithoutRoomForTheRecordingItsSoundWaitsInTheTemporaryFolder) {
    mountSmallDisk(recordings, "size=16k");
    record();
    EXPECT_EQ(printed, "");
    EXPECT_EQ(status, 1);
    EXPECT_NE(errors().find("tessivox recover"), std::string::npos) << errors();
    EXPECT_TRUE(filesIn(recordings).empty());
    EXPECT_GE(rawFrames(data / "Tessivox/Incomplete/stereo_talk.caf"), 4 * kRate);
}

TEST_F(FullDiskTest, WithoutRoomForEitherTheSoundThatFitsIsKeptAndNothingIsCalledSaved) {
    mountSmallDisk(home / "disk", "size=1m");
    data = home / "disk/data", recordings = home / "disk/recordings", output = recordings / "talk.m4a";
    std::filesystem::create_directories(recordings);
    record();
    EXPECT_EQ(printed, "");
    EXPECT_EQ(status, 1);
    EXPECT_NE(errors().find("the disk is full"), std::string::npos) << errors();
    EXPECT_NE(errors().find((recordings / "talk.caf").string()), std::string::npos) << errors();
    EXPECT_EQ(filesIn(recordings), std::vector{recordings / "talk.caf"});
    EXPECT_GE(rawFrames(recordings / "talk.caf"), 2 * kRate);
}

TEST_F(FullDiskTest, WithoutRoomToBeginASentenceSaysSoAndNothingStays) {
    mountSmallDisk(data, "size=4k,nr_inodes=3");  // the two folders, and no file
    record();
    EXPECT_EQ(printed, "");
    EXPECT_EQ(status, 1);
    EXPECT_NE(errors().find("the disk is full"), std::string::npos) << errors();
    EXPECT_EQ(errors().find('\n'), errors().size() - 1) << errors();
    EXPECT_TRUE(filesIn(recordings).empty());
}

}  // namespace
}  // namespace tessivox::testing
