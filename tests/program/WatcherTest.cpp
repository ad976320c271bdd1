#include <csignal>
#include <optional>

#include "ProgramHome.h"

namespace tessivox::testing {
namespace {

/// The program watches for calls on a real sound server, with another program that opens the microphone.
class WatcherTest : public ProgramHome {
protected:
    void SetUp() override { soundServer = sound.address(); }

    ChildProcess watch(const std::string& settings) {
        std::filesystem::create_directories(home / "config/Tessivox");
        std::ofstream(home / "config/Tessivox/settings.json") << settings;
        auto program = start({"run", "--headless", "--verbose"});
        EXPECT_TRUE(says("Sent: permission_state")) << errors();
        return program;
    }
    ChildProcess call() const {
        return {{"sh", "-c", "exec parec --device=mic >/dev/null"}, {"PULSE_SERVER=" + soundServer}};
    }
    static int end(ChildProcess& program) {
        ::kill(program.pid(), SIGTERM);
        return program.wait();
    }

    SoundServer sound{SoundServerKind::pulseAudio};
};

TEST_F(WatcherTest, RecordsACallByItselfFromItsStartToItsEnd) {
    auto program = watch(R"({"autoStartRecording":true,"showRecordingPrompt":false,"autoTranscribe":false})");
    auto other = call();
    ASSERT_TRUE(says("Sent: recording_started")) << errors();
    ASSERT_TRUE(reaches(100000)) << errors();
    other.stop(SIGTERM);
    ASSERT_TRUE(says("Recording saved to: ")) << errors();
    const auto files = filesIn(recordings);
    ASSERT_EQ(files.size(), 1);
    EXPECT_EQ(files.front().extension(), ".m4a");
    EXPECT_TRUE(becomesTrue([&] { return temporaries().empty(); }));
    EXPECT_EQ(end(program), 0);
    const auto log = errors();
    std::size_t last = 0;
    for (const auto* signal : {"call_detected", "recording_started", "call_ended", "recording_stopped"}) {
        const auto found = log.find(std::string("Sent: ") + signal);
        ASSERT_NE(found, std::string::npos) << signal << "\n" << log;
        EXPECT_LT(last, found) << signal;
        last = found;
    }
}

TEST_F(WatcherTest, AsksOnStandardErrorWhereNothingCanBeShownAndRecordsNothingUnanswered) {
    auto program = watch(R"({"autoStartRecording":true})");
    auto other = call();
    EXPECT_TRUE(says("Record this call? (Mic + system audio · a call) To record it, run: tessivox start")) << errors();
    other.stop(SIGTERM);
    EXPECT_TRUE(says("Sent: call_ended")) << errors();
    EXPECT_EQ(end(program), 0);
    EXPECT_EQ(errors().find("recording_started"), std::string::npos);
    EXPECT_TRUE(filesIn(recordings).empty());
}

}  // namespace
}  // namespace tessivox::testing
