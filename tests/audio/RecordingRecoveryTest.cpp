#include "audio/RecordingRecovery.h"

#include <gtest/gtest.h>

#include "audio/CafFile.h"
#include "audio/LeftoverSweep.h"
#include "audio/OutputNote.h"
#include "audio/RecordingFiles.h"
#include "audio/TrackEncoder.h"
#include "base/Log.h"
#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"
#include "support/ForwardingFiles.h"

namespace tessivox::audio {
namespace {

using namespace std::string_literals;
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
    disk.put(library / ".monday.part_mic", "half an encoded track");
    disk.put(library / ".monday.part", "");
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

TEST_F(RecordingRecoveryTest, WhatWasSavedUnderAnyNameLosesItsTemporaryFileAndIsNotAnnouncedAgain) {
    for (const auto* name : {"talk.m4a", "talk.M4A", "talk_2.m4a", "talk_recovered_1.m4a", "talk_recovered_12.m4a"}) {
        leave("stereo_other.caf", 5000);
        ASSERT_EQ(recover().size(), 1U);
        disk.move(library / "other.m4a", library / name);
        leave("stereo_talk.caf", 5000);
        EXPECT_TRUE(recover().empty());
        EXPECT_TRUE(disk.list(incomplete).empty());
        EXPECT_EQ(disk.list(library), std::vector<Path>{name});
        leave("stereo_talk.caf", 7000);
        EXPECT_EQ(recover().size(), 1U) << "another recording, by its length";
        for (const auto& file : disk.list(library)) disk.remove(library / file);
    }
}

TEST_F(RecordingRecoveryTest, WhatWasSavedInAnotherFolderDoesNotComeBackAndNothingHiddenStaysThere) {
    const RecordingFiles names(incomplete, "/talks/talk.m4a");
    const auto note = [&](std::size_t frames) {
        leave("stereo_talk.caf", frames);
        noteOutput(disk, names);
        disk.put(names.hidden(Track::stereo),
                 "\0\0\0\x1c"
                 "ftypM4A half"s);
        disk.put(names.hidden(Track::microphone), "");
    };
    leave("stereo_other.caf", 5000);
    ASSERT_EQ(recover().size(), 1U);
    disk.makeFolders("/talks");
    disk.move(library / "other.m4a", "/talks/talk.m4a");
    disk.put("/talks/.talk.part_sys", "somebody's own hidden file");
    disk.put("/talks/.walk.part", "");
    const std::vector<std::string> kept{".talk.part_sys", ".walk.part", "talk.m4a"};
    note(5000);
    EXPECT_TRUE(recover().empty());
    EXPECT_TRUE(disk.list(incomplete).empty());
    EXPECT_TRUE(disk.list(library).empty());
    EXPECT_EQ(sortedNames(disk, "/talks"), kept);
    note(7000);
    EXPECT_EQ(recover(), std::vector<Path>{library / "talk.m4a"}) << "another recording, by its length";
    EXPECT_EQ(sortedNames(disk, "/talks"), kept);
    EXPECT_EQ(framesOf("/talks/talk.m4a"), 5000U);
}

TEST_F(RecordingRecoveryTest, ANotedPathThatIsNotTheRecordingsOwnIsIgnored) {
    const auto attribute = "user.com.tessivox.output";
    leave("stereo_other.caf", 5000);
    ASSERT_EQ(recover().size(), 1U);
    disk.makeFolders("/talks");
    disk.move(library / "other.m4a", "/talks/talk.m4a");
    disk.put("/talks/.talk.part", "");
    for (const auto& path : {"talks/talk.m4a"s, "/x/../talks/talk.m4a"s, "/talks/walk.m4a"s, "/talks/talk.txt"s,
                             "/talks/talk.m4a\0"s, "/talks"s, ""s, std::string(5000, '/')}) {
        leave("stereo_talk.caf", 5000);
        disk.setAttribute(incomplete / "stereo_talk.caf", attribute, path);
        EXPECT_EQ(recover(), std::vector<Path>{library / "talk.m4a"}) << path;
        EXPECT_EQ(sortedNames(disk, "/talks"), (std::vector<std::string>{".talk.part", "talk.m4a"})) << path;
        disk.remove(library / "talk.m4a");
    }
}

TEST_F(RecordingRecoveryTest, ALongBaseLosesItsEndForANumberButNoHalfACharacter) {
    const std::string base = std::string(226, 'x') + "\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4x";  // 243 bytes
    disk.put(library / (base + ".m4a"), "somebody else's");
    leave("stereo_" + base + ".caf", 5000);
    const auto target = library / (std::string(226, 'x') + "\u00e4\u00e4_recovered_1.m4a");
    EXPECT_EQ(recover(), std::vector<Path>{target});
    leave("stereo_" + base + ".caf", 5000);
    EXPECT_TRUE(recover().empty()) << "what was saved under the shortened name is recognised";
    EXPECT_TRUE(disk.list(incomplete).empty());
    const auto next = RecordingFiles(incomplete, library / (base + ".m4a")).firstFree(disk);
    EXPECT_EQ(next.baseName(), std::string(226, 'x') + "\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4_2");
    for (const auto track : kTracks) {
        for (const auto& path : {next.final(track), next.hidden(track), next.temporary(track), next.discarded(track)})
            EXPECT_LE(path.filename().native().size(), 255U) << path;
    }
}

TEST_F(RecordingRecoveryTest, ARecordingNeverRemovesTheHiddenFileThatAnotherOneWrites) {
    const RecordingFiles names(incomplete, library / "a.m4a"), other(incomplete, library / "a_mic.m4a");
    EXPECT_NE(names.hidden(Track::microphone), other.hidden(Track::stereo));
    const auto make = [&] { return TrackEncoder(disk, encoders, names, Track::stereo, {48000, 2, 128000}); };
    const auto hidden = names.hidden(Track::stereo);
    disk.put(hidden, "left by a crash");
    {
        const auto first = make();
        const auto inode = disk.status(hidden)->inode;
        EXPECT_THROW(make(), base::FileError);
        ASSERT_TRUE(disk.exists(hidden));
        EXPECT_EQ(disk.status(hidden)->inode, inode);
    }
    EXPECT_FALSE(disk.exists(hidden));
}

TEST_F(RecordingRecoveryTest, AFileOlderThanTheTemporaryOneIsNotItsCopyHoweverLongItIs) {
    leave("stereo_talk.caf", 5000);
    ASSERT_EQ(recover(), std::vector<Path>{"/recordings/talk.m4a"});
    disk.setTime(disk.status("/recordings/talk.m4a")->modified + std::chrono::seconds(1));
    leave("stereo_talk.caf", 5000);
    EXPECT_EQ(recover(), std::vector<Path>{"/recordings/talk_recovered_1.m4a"});
    EXPECT_EQ(framesOf("/recordings/talk_recovered_1.m4a"), 5000U);
    EXPECT_TRUE(recover().empty());
}

TEST_F(RecordingRecoveryTest, WhatAnotherProcessFinishedMeanwhileIsNoFailure) {
    struct LateList : testing::ForwardingFiles {
        using ForwardingFiles::ForwardingFiles;
        std::vector<Path> list(const Path&) const override { return {"stereo_gone.caf"}; }
    };
    LateList late(disk);
    std::vector<std::string> failures;
    RecoveryObserver observer;
    observer.failed = [&](const std::string& base, const base::Error&) { failures.push_back(base); };
    EXPECT_TRUE(recoverIncompleteFiles({late, encoders, {}}, incomplete, library, {}, observer).empty());
    EXPECT_TRUE(failures.empty());
}

TEST_F(RecordingRecoveryTest, LeftoversOfEndedRecordingsGo) {
    disk.put(library / ".gone.part", std::string(4, '\0') + "ftypM4A half");
    disk.put(library / ".gone_sys.part", std::string(500, '\0'));
    disk.put(library / ".early_mic.part", "");
    for (const auto* name : {".early.part_mic", ".early.part_sys"}) disk.put(library / name, "");
    disk.put(library / importName("00112233-4455-4677-8899-AABBCCDDEEFF"), "\0\0\0 ftypqt  of another program");
    disk.put(library / RecordingFiles::kProbe, "");
    leave("mic_gone.caf", 10);
    disk.put(incomplete / "sys_gone.caf", "");
    disk.put(incomplete / "donemic_gone.caf", "x");
    disk.put(incomplete / "stereo_blank.caf", std::string(100'000, '\0'));
    EXPECT_TRUE(recover().empty());
    EXPECT_TRUE(disk.list(incomplete).empty());
    EXPECT_TRUE(disk.list(library).empty());
}

TEST_F(RecordingRecoveryTest, WhatOthersUseOrOwnIsNotSwept) {
    const auto importing = importName("00112233-4455-4677-8899-AABBCCDDEEFF");
    const std::vector<Path> inLibrary{".download.part", ".elsewhere.part",         ".live.part", ".live_mic.part",
                                      importing,        ".tessivox-import-x.part", ".x.partial"};
    disk.put(library / ".tessivox-import-x.part", "whatever it is");
    disk.put(library / importing, "half");
    const auto import = disk.open(library / importing, base::FileAccess::update);
    ASSERT_TRUE(import->tryLock(library / importing));
    disk.put(library / ".download.part", "the beginning of something else");
    disk.put(library / ".elsewhere.part", "");  // of a program with other folders
    const auto elsewhere = disk.open(library / ".elsewhere.part", base::FileAccess::update);
    ASSERT_TRUE(elsewhere->tryLock(library / ".elsewhere.part"));
    for (const auto* name : {".live.part", ".live_mic.part", ".x.partial"}) disk.put(library / name, "");
    for (const auto* name : {"stereo_live.caf", "mic_live.caf", "sys_live.caf", "done_old.caf"}) leave(name, 10);
    const auto live = disk.open(incomplete / "stereo_live.caf", base::FileAccess::update);
    const auto old = disk.open(incomplete / "done_old.caf", base::FileAccess::update);
    ASSERT_TRUE(live->tryLock(incomplete / "stereo_live.caf") && old->tryLock(incomplete / "done_old.caf"));
    EXPECT_TRUE(recover().empty());
    EXPECT_EQ(sortedNames(disk, library), std::vector<std::string>(inLibrary.begin(), inLibrary.end()));
    EXPECT_EQ(disk.list(incomplete).size(), 4U);
}

TEST_F(RecordingRecoveryTest, AFileThatCannotBeOpenedIsLoggedOnceALaunchAndOtherFilesAreNot) {
    std::vector<std::string> lines;
    base::setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    disk.put(incomplete / "stereo_broken.caf", std::string(100, 'x'));
    leave("stereo_empty.caf", 0);
    for (int launch = 1; launch <= 2; ++launch) {
        recover();
        ASSERT_EQ(lines.size(), static_cast<std::size_t>(launch));
        EXPECT_EQ(lines.back().find("[Recovery] Failed to finalize stereo_broken.caf: "), 0U) << lines.back();
    }
    base::setLogSink({});
}

/// A machine that crashed in a recording of 1100 frames with separate tracks, and what becomes of it.
struct CrashedMachine {
    CrashingFiles disk;
    FakeEncoder encoders;
    std::size_t announced = 0;
    const Path incomplete = "/data/Incomplete", library = "/recordings";

    explicit CrashedMachine(bool isNameTaken) {
        disk.makeFolders(incomplete);
        disk.makeFolders(library);
        if (isNameTaken) disk.put(library / "talk.m4a", "a partial file");
        for (const auto& [name, channels] : {std::pair{"stereo_", 2}, {"mic_", 1}, {"sys_", 1}}) {
            CafWriter writer(disk.create(incomplete / (std::string(name) + "talk.caf")), {48000, channels});
            writer.write(0, std::vector<float>(static_cast<std::size_t>(1100 * channels), 0.5F));
            writer.file().sync();
        }
        disk.syncFolder(incomplete);
    }
    std::uint64_t recover() {
        const auto before = disk.operationCount();
        announced += recoverIncompleteFiles({disk, encoders, {}}, incomplete, library, {}).size();
        return disk.operationCount() - before;
    }
    /// A recovery during which the power fails.
    void recoverUntil(std::uint64_t operation, CrashingFiles::Unsynced unsynced) {
        disk.haltAt(disk.operationCount() + operation);
        const auto before = announced;
        recover();
        if (disk.isHalted()) announced = before;
        disk.crash(unsynced, operation);
    }
    void judge(bool isNameTaken) {
        const std::string name = isNameTaken ? "talk_recovered_1.m4a" : "talk.m4a";
        auto expected = std::vector<std::string>{name};
        if (isNameTaken) expected.insert(expected.begin(), "talk.m4a");
        EXPECT_EQ(sortedNames(disk, library), expected);
        EXPECT_EQ(FakeEncoder::samplesOf(disk, library / name).size(), 2200U);
        EXPECT_TRUE(disk.list(incomplete).empty());
        EXPECT_LE(announced, 1U);
    }
};

TEST(RecoveryPowerFailureTest, WhereverThePowerFailsTwiceTheRecordingComesBackWholeAndOnce) {
    using Unsynced = CrashingFiles::Unsynced;
    for (const bool isNameTaken : {false, true}) {
        const auto count = CrashedMachine(isNameTaken).recover();
        ASSERT_GT(count, 8U);
        for (const auto unsynced : {Unsynced::lost, Unsynced::prefix, Unsynced::zeros, Unsynced::kept}) {
            for (std::uint64_t first = 1; first <= count + 1; ++first) {
                for (std::uint64_t second = 1 + first % 4; second <= count + 1 && !::testing::Test::HasFailure();
                     second += 4) {
                    SCOPED_TRACE(std::to_string(first) + ", then " + std::to_string(second) + ", kind " +
                                 std::to_string(static_cast<int>(unsynced)) + (isNameTaken ? ", name taken" : ""));
                    CrashedMachine machine(isNameTaken);
                    machine.recoverUntil(first, unsynced);
                    machine.recoverUntil(second, unsynced);
                    machine.recover();
                    machine.judge(isNameTaken);
                    machine.recover();
                    machine.judge(isNameTaken);
                }
            }
        }
    }
}

TEST(RecoveryPowerFailureTest, AnOperationThatFailsOnceDelaysTheRecordingAtMostToTheNextLaunch) {
    for (const bool isNameTaken : {false, true}) {
        const auto count = CrashedMachine(isNameTaken).recover();
        for (std::uint64_t operation = 1; operation <= count; ++operation) {
            SCOPED_TRACE("operation " + std::to_string(operation));
            CrashedMachine machine(isNameTaken);
            machine.disk.failAt(machine.disk.operationCount() + operation, CrashingFiles::Fault::ioError);
            machine.recover();
            machine.recover();
            machine.judge(isNameTaken);
            EXPECT_EQ(machine.announced, 1U);
        }
    }
}

}  // namespace
}  // namespace tessivox::audio
