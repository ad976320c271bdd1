#include "detection/SessionGuard.h"

#include <gtest/gtest.h>

#include "audio/CafFile.h"
#include "detection/LeftTranscriptions.h"
#include "support/FakeSession.h"
#include "support/RecordingWorld.h"

namespace tessivox::detection {
namespace {

using Lines = std::vector<std::string>;

struct SessionGuardTest : ::testing::Test, RecordingWorld {
    testing::FakeSession session;
    int ends = 0;
    SessionGuard guard{{time, session, controller, recorder, [this] { ++ends; }}};

    /// Frames on the disk that a power failure leaves.
    std::uint64_t durableFrames() {
        disk.crash();
        const auto path = kIncomplete / "stereo_2026-03-01_09-00-00.caf";
        return audio::CafReader(disk.open(path, base::FileAccess::read)).frames();
    }
};

TEST_F(SessionGuardTest, SleepAndShutdownWaitOnlyWhileThereIsSomethingToLose) {
    EXPECT_EQ(session.delays, 0);
    begin();
    EXPECT_EQ(session.delays, 1);
    hear(1s);
    time.stall("com.tessivox.stereo.encode", true);
    end();
    EXPECT_EQ(session.delays, 1) << "it is being saved";
    time.stall("com.tessivox.stereo.encode", false);
    time.settle();
    EXPECT_EQ(session.delays, 0);
    sound.refuse("pci", true);
    begin();
    EXPECT_EQ(session.delays, 0) << "nothing came of it";
    EXPECT_EQ(session.taken, 2);
}

TEST_F(SessionGuardTest, BeforeSleepWhatWasHeardIsBroughtToTheDisk) {
    begin();
    time.stall("com.tessivox.stereo.sync", true);
    hear(3s);
    session.goToSleep();
    time.settle();
    EXPECT_EQ(session.delays, 1) << "it is not on the disk yet";
    time.stall("com.tessivox.stereo.sync", false);
    time.settle();
    EXPECT_EQ(session.delays, 0);
    EXPECT_EQ(durableFrames(), 3 * 48000);
}

TEST_F(SessionGuardTest, TheRecordingGoesOnAfterSleepWithoutAGap) {
    begin();
    hear(2s);
    session.goToSleep();
    time.settle();
    session.wake();
    EXPECT_EQ(session.delays, 1);
    hear(2s);
    session.goToSleep();
    time.settle();
    EXPECT_EQ(session.delays, 0) << "a second sleep waits as the first one did";
    session.wake();
    end();
    EXPECT_EQ(session.delays, 0);
    EXPECT_EQ(transcribed, Lines{"2026-03-01_09-00-00.m4a 4 s"});
    const auto samples = testing::FakeEncoder::samplesOf(disk, testing::Library::kFolder / "2026-03-01_09-00-00.m4a");
    EXPECT_EQ(samples.size(), 2 * 4 * 48000);
}

TEST_F(SessionGuardTest, AComputerThatWakesBeforeItSleptKeepsWaitingForTheRecording) {
    begin();
    hear(1s);
    time.stall("com.tessivox.stereo.sync", true);
    session.goToSleep();
    time.settle();
    session.wake();
    time.stall("com.tessivox.stereo.sync", false);
    time.settle();
    EXPECT_EQ(session.delays, 1);
    end();
    EXPECT_EQ(session.delays, 0);
    session.goToSleep();
    session.wake();
    EXPECT_EQ(session.delays, 0);
}

TEST_F(SessionGuardTest, AtTheSessionsEndTheRecordingIsSavedAndTheProgramEnds) {
    begin();
    hear(5s);
    time.stall("com.tessivox.stereo.encode", true);
    session.end();
    time.settle();
    EXPECT_EQ(ends, 0) << "it is being saved";
    session.goToSleep();
    time.settle();
    EXPECT_EQ(session.delays, 1);
    time.stall("com.tessivox.stereo.encode", false);
    time.settle();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(session.delays, 1) << "until the program is gone";
    EXPECT_EQ(library.names(), "2026-03-01_09-00-00");
    EXPECT_TRUE(transcribed.empty());
    EXPECT_EQ(left, Lines{"2026-03-01_09-00-00.m4a 5 s"});
    EXPECT_NE(text(begin()), "done");
    EXPECT_EQ(phase(), "idle");
}

TEST_F(SessionGuardTest, AStartThatIsAwaitedAtTheSessionsEndIsEndedToo) {
    sound.delay("speakers.monitor", 2s);
    begin();
    session.end();
    session.end();
    time.advance(1s);
    EXPECT_EQ(ends, 0);
    time.advance(1s);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(sound.openStreams(), 0);
}

TEST_F(SessionGuardTest, WithoutARecordingTheProgramEndsAtOnce) {
    session.end();
    time.settle();
    EXPECT_EQ(ends, 1);
    set(false, true);
    callStarts();
    EXPECT_EQ(phase(), "idle") << "no call is recorded any more";
}

TEST_F(SessionGuardTest, WhatWasLeftToTranscribeIsHandedOutOnceAndOutlivesTheProgram) {
    const Path strange = "/home/user/Recordings/caf\xe9 %41.m4a";
    LeftTranscriptions(library.preferences).leave(strange, 61500ms);
    LeftTranscriptions(library.preferences).leave("/a.m4a", 3s);
    const auto entries = LeftTranscriptions(library.preferences).take();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[1].recording, strange);
    EXPECT_EQ(entries[1].length, 61500ms);
    EXPECT_TRUE(LeftTranscriptions(library.preferences).take().empty());
    library.preferences.set("transcribeAtNextStart",
                            std::map<std::string, std::string>{{"/b.m4a", "soon"}, {"/c.m4a", "-1"}});
    EXPECT_TRUE(LeftTranscriptions(library.preferences).take().empty());
}

}  // namespace
}  // namespace tessivox::detection
