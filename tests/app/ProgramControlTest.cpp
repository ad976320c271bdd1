#include "app/ProgramControl.h"

#include <gtest/gtest.h>

#include "support/RecordingWorld.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;
using core::ProgramRequest;
using core::ProgramStatus;

struct ProgramControlTest : ::testing::Test, detection::RecordingWorld {
    ProgramControl control{state, controller};

    ProgramStatus ask(ProgramRequest request) { return testing::await(time, control.carryOut(request)); }
    std::string refusal(ProgramRequest request) {
        try {
            ask(request);
            return "";
        } catch (const base::Error& error) {
            return error.description();
        }
    }
    static inline const std::filesystem::path kFirst = testing::Library::kFolder / "2026-03-01_09-00-00.m4a";
};

TEST_F(ProgramControlTest, TellsWhatWasStartedAndWhatWasSaved) {
    EXPECT_EQ(control.status(), ProgramStatus());
    EXPECT_EQ(ask(ProgramRequest::start), (ProgramStatus{true, false, false, 0, kFirst}));
    hear(4s);
    EXPECT_EQ(ask(ProgramRequest::pause), (ProgramStatus{true, true, false, 4, kFirst}));
    EXPECT_EQ(ask(ProgramRequest::resume), (ProgramStatus{true, false, false, 4, kFirst}));
    EXPECT_EQ(ask(ProgramRequest::stop), (ProgramStatus{false, false, false, 0, kFirst}));
    EXPECT_TRUE(disk.exists(kFirst));
    EXPECT_EQ(control.status(), ProgramStatus());
}

TEST_F(ProgramControlTest, TogglingStartsAndStopsAlsoWhileAStartIsAwaited) {
    EXPECT_TRUE(ask(ProgramRequest::toggle).isRecording);
    EXPECT_FALSE(ask(ProgramRequest::toggle).isRecording);
    sound.delay("speakers.monitor", 2s);
    begin();
    EXPECT_FALSE(ask(ProgramRequest::toggle).isRecording);
    EXPECT_EQ(phase(), "idle");
}

TEST_F(ProgramControlTest, PassesRefusalsOn) {
    for (const auto request : {ProgramRequest::stop, ProgramRequest::pause, ProgramRequest::resume})
        EXPECT_EQ(refusal(request), "Nothing is being recorded: start a recording first.");
    sound.refuse("pci", true);
    EXPECT_EQ(refusal(ProgramRequest::start), "Access was refused.");
}

TEST_F(ProgramControlTest, TellsWhatBecameOfARecordingThatIsNotWhole) {
    using Fault = testing::CrashingFiles::Fault;
    encoders.refusedChannels = 2;  // so that the file is made of what is on the disk
    begin();
    hear(2s);
    disk.failFrom(1, Fault::ioError, kIncomplete);
    hear(2s);
    disk.heal();
    encoders.refusedChannels = 0;
    hear(2s);
    const auto holed = ask(ProgramRequest::stop);
    EXPECT_EQ(holed.file, kFirst);
    EXPECT_GT(holed.missingSeconds, 0);

    encoders.refusedChannels = 2;
    auto rescued = ask(ProgramRequest::start).file.value();
    rescued.replace_extension(".caf");
    hear(4s);
    EXPECT_NE(refusal(ProgramRequest::stop).find(rescued.string()), std::string::npos);
    EXPECT_TRUE(disk.exists(rescued));

    begin();
    hear(4s);
    disk.failFrom(1, Fault::ioError, testing::Library::kFolder);
    EXPECT_NE(refusal(ProgramRequest::stop).find("tessivox recover"), std::string::npos);
}

TEST_F(ProgramControlTest, SaysWhenTheStatusChanges) {
    int changes = 0;
    const auto observing = control.onChange([&] { ++changes; });
    const auto changed = [&] { return std::exchange(changes, 0) > 0; };
    changed();
    callStarts();
    EXPECT_TRUE(changed());
    begin();
    EXPECT_TRUE(changed());
    hear(3s);
    EXPECT_FALSE(changed()) << "time passes";
    controller.pauseRecording();
    EXPECT_TRUE(changed());
    end();
    EXPECT_TRUE(changed());
}

}  // namespace
}  // namespace tessivox::app
