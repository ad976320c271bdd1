#include "audio/RecordingRecovery.h"

#include <gtest/gtest.h>

#include "audio/CafFile.h"
#include "audio/RecordingFiles.h"
#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"

namespace tessivox::audio {
namespace {

using testing::CrashingFiles;
using testing::FakeEncoder;
using Path = std::filesystem::path;

struct RecordingRecoveryTest : ::testing::Test {
    CrashingFiles disk;
    FakeEncoder encoders;
    const Path incomplete = "/data/Incomplete";
    const Path library = "/recordings";

    void SetUp() override {
        disk.makeFolders(incomplete);
        disk.makeFolders(library);
    }
    /// What a crash leaves of a recording of so many frames.
    void leave(const std::string& name, std::size_t frames, double rate = 48000) {
        CafWriter writer(disk.create(incomplete / name), {rate, 2});
        const std::vector<float> samples(2 * frames, 0.5F);
        if (frames > 0) writer.write(0, samples);
    }
    std::vector<Path> recover() { return recoverIncompleteFiles({disk, encoders, {}}, incomplete, library, {}); }
    std::size_t framesOf(const Path& path) { return FakeEncoder::samplesOf(disk, path).size() / 2; }
};

TEST_F(RecordingRecoveryTest, EveryInterruptedRecordingComesBackOnceWithAllItsFrames) {
    leave("stereo_monday.caf", 50000);
    leave("mic_monday.caf", 10);
    leave("sys_monday.caf", 10);
    disk.put(library / ".monday_mic.part", "half an encoded track");
    leave("stereo_tuesday.caf", 100, 44100);
    EXPECT_EQ(recover(), (std::vector<Path>{"/recordings/monday.m4a", "/recordings/tuesday.m4a"}));
    EXPECT_EQ(framesOf("/recordings/monday.m4a"), 50000U);
    EXPECT_EQ(encoders.opened[0].bitrate, 128000);
    EXPECT_EQ(encoders.opened[1].sampleRate, 44100);
    EXPECT_TRUE(disk.list(incomplete).empty());
    EXPECT_EQ(disk.list(library).size(), 2U);
    EXPECT_TRUE(recover().empty());
}

TEST_F(RecordingRecoveryTest, TheFileMayEndAnywhereAndDeclareAnySize) {
    leave("stereo_cut.caf", 1000);
    const auto file = disk.open(incomplete / "stereo_cut.caf", base::FileAccess::update);
    file->truncate(CafWriter::kHeaderSize + 900 * 8 + 5);
    for (const auto size : {std::byte{0}, std::byte{0xff}}) {
        const std::vector<std::byte> field(8, size);
        file->writeAt(56, field);
        EXPECT_EQ(CafReader(disk.open(incomplete / "stereo_cut.caf", base::FileAccess::read)).frames(), 900U);
    }
    recover();
    EXPECT_EQ(framesOf("/recordings/cut.m4a"), 900U);
}

TEST_F(RecordingRecoveryTest, AnEmptyRecordingGoesSilentlyAndANamelessOneStays) {
    leave("stereo_empty.caf", 0);
    leave("mic_empty.caf", 0);
    disk.put(incomplete / "stereo_short.caf", "caff");
    leave("stereo_.caf", 5);
    leave("done_old.caf", 5);
    EXPECT_TRUE(recover().empty());
    EXPECT_EQ(disk.list(incomplete), std::vector<Path>{"stereo_.caf"});
    EXPECT_TRUE(disk.list(library).empty());
}

TEST_F(RecordingRecoveryTest, ATakenNameIsNeverReplaced) {
    disk.put("/recordings/talk.m4a", "a partial file");
    disk.put("/recordings/talk_recovered_1.m4a", "from last time");
    leave("stereo_talk.caf", 5000);
    EXPECT_EQ(recover(), std::vector<Path>{"/recordings/talk_recovered_2.m4a"});
    EXPECT_EQ(disk.readAll("/recordings/talk.m4a", 100), "a partial file");
}

TEST_F(RecordingRecoveryTest, WhatARunningProgramRecordsIsNotTouched) {
    leave("stereo_live.caf", 5000);
    const auto other = disk.open(incomplete / "stereo_live.caf", base::FileAccess::update);
    ASSERT_TRUE(other->tryLock(incomplete / "stereo_live.caf"));
    EXPECT_TRUE(recover().empty());
    EXPECT_TRUE(disk.exists(incomplete / "stereo_live.caf"));
}

TEST_F(RecordingRecoveryTest, WhatCannotBeFinishedStaysAndDoesNotHoldOthersUp) {
    disk.put(incomplete / "stereo_broken.caf", std::string(100, 'x'));
    leave("stereo_good.caf", 500);
    EXPECT_EQ(recover(), std::vector<Path>{"/recordings/good.m4a"});
    EXPECT_TRUE(disk.exists(incomplete / "stereo_broken.caf"));
    leave("stereo_full.caf", 500);
    disk.failFrom(disk.operationCount() + 1, CrashingFiles::Fault::noSpace, library);
    EXPECT_TRUE(recover().empty());
    disk.heal();
    EXPECT_EQ(recover(), std::vector<Path>{"/recordings/full.m4a"});
    EXPECT_EQ(disk.list(library).size(), 2U);
}

TEST_F(RecordingRecoveryTest, APowerFailureDuringRecoveryLosesNothing) {
    for (std::uint64_t operation = 1; operation < 30; ++operation) {
        CrashingFiles machine;
        machine.makeFolders(incomplete);
        machine.makeFolders(library);
        {
            CafWriter writer(machine.create(incomplete / "stereo_talk.caf"), {48000, 2});
            writer.write(0, std::vector<float>(2 * 3000, 0.5F));
            writer.file().sync();
            machine.syncFolder(incomplete);
        }
        machine.failFrom(machine.operationCount() + operation, CrashingFiles::Fault::ioError);
        recoverIncompleteFiles({machine, encoders, {}}, incomplete, library, {});
        machine.heal();
        machine.crash(CrashingFiles::Unsynced::prefix, operation);
        recoverIncompleteFiles({machine, encoders, {}}, incomplete, library, {});
        std::size_t whole = 0;
        for (const auto& name : machine.list(library)) {
            if (name.extension() != ".m4a") continue;
            EXPECT_EQ(FakeEncoder::samplesOf(machine, library / name).size(), 6000U) << operation;
            ++whole;
        }
        EXPECT_GE(whole, 1U) << "at operation " << operation;
        EXPECT_TRUE(machine.list(incomplete).empty()) << "at operation " << operation;
    }
}

}  // namespace
}  // namespace tessivox::audio
