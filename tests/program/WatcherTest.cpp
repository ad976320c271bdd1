#include <csignal>
#include <nlohmann/json.hpp>

#include "program/ProgramHome.h"
#include "program/SpokenDialogue.h"
#include "support/ChromiumProcess.h"
#include "support/PrivateBus.h"

namespace tessivox::testing {
namespace {

/// The program watches for calls on a real sound server, with another program that opens the microphone.
class WatcherTest : public ProgramHome {
protected:
    void SetUp() override { soundServer = sound.address(); }

    void setSettings(const std::string& text) const {
        std::filesystem::create_directories(home / "config/Tessivox");
        std::ofstream(home / "config/Tessivox/settings.json") << text;
    }
    ChildProcess watch(const std::string& log = "errors", const std::string& prelude = "") const {
        auto program = start({"run", "--headless", "--verbose"}, log, prelude);
        EXPECT_TRUE(becomesTrue([&] { return errors(log).find("Sent: permission_state") != std::string::npos; }));
        return program;
    }
    ChildProcess call() const {
        return {{"sh", "-c", "exec parec --device=mic >/dev/null"}, {"PULSE_SERVER=" + soundServer}};
    }
    /// The program has sent these signals in this order, whatever came between.
    void expectSignals(const std::vector<std::string>& signals) const {
        const auto log = errors();
        std::size_t last = 0;
        for (const auto& signal : signals) {
            last = log.find("Sent: " + signal, last);
            ASSERT_NE(last, std::string::npos) << signal << "\n" << log;
        }
    }
    static int end(ChildProcess& program) {
        ::kill(program.pid(), SIGTERM);
        return program.wait();
    }

    SoundServer sound{SoundServerKind::pulseAudio};
};

TEST_F(WatcherTest, RecordsACallByItselfFromItsStartToItsEnd) {
    setSettings(R"({"autoStartRecording":true,"showRecordingPrompt":false,"autoTranscribe":false})");
    auto program = watch();
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
    expectSignals({"call_detected", "recording_started", "call_ended", "recording_stopped"});
}

TEST_F(WatcherTest, TakesACallInABrowserToItsTranscriptWithoutAnyone) {
    constexpr std::size_t kTurns = 4;
    setSettings(R"({"autoStartRecording":true,"showRecordingPrompt":false})");
    auto program = watch();
    ChromiumProcess browser(sound);
    ASSERT_TRUE(says("Sent: recording_started", 120)) << errors();
    ASSERT_TRUE(reaches(5000)) << errors();
    SpokenDialogue::speak(sound, home.string(), kTurns);
    browser.end();
    ASSERT_TRUE(says("Sent: transcription_completed", 240)) << errors();
    expectSignals({"call_detected", "recording_started", "call_ended", "recording_stopped", "transcription_started",
                   "transcription_completed"});
    EXPECT_NE(errors().find("external: [com.google.Chrome]"), std::string::npos) << errors();

    Path recording;
    for (const auto& file : filesIn(recordings)) {
        if (file.extension() == ".m4a") recording = file;
    }
    const auto transcript = textOf(recording.replace_extension("txt"));
    const TranscriptWords heard(transcript);
    EXPECT_TRUE(heard.isWellFormed) << transcript;
    EXPECT_LE(wordErrorRate(SpokenDialogue::said(kTurns), heard.words), 0.25) << transcript;
    EXPECT_EQ(nlohmann::json::parse(textOf(data / "Tessivox/pending_transcriptions.json")), nlohmann::json::array());
    EXPECT_EQ(end(program), 0);
}

TEST_F(WatcherTest, AsksOnStandardErrorWhereNothingCanBeShownAndRecordsNothingUnanswered) {
    setSettings(R"({"autoStartRecording":true})");
    auto program = watch();
    auto other = call();
    EXPECT_TRUE(says("Record this call? (Mic + system audio · a call) To record it, run: tessivox start")) << errors();
    other.stop(SIGTERM);
    EXPECT_TRUE(says("Sent: call_ended")) << errors();
    EXPECT_EQ(end(program), 0);
    EXPECT_EQ(errors().find("recording_started"), std::string::npos);
    EXPECT_TRUE(filesIn(recordings).empty());
}

TEST_F(WatcherTest, SavesTheRecordingWhenTheSessionEndsAndTranscribesItAtTheNextStart) {
    serverURL = "http://127.0.0.1:9";  // nobody is there
    setSettings(R"({"autoStartRecording":true,"showRecordingPrompt":false})");
    PrivateBus session(home);
    auto program = watch("first", "export DBUS_SESSION_BUS_ADDRESS=" + session.address() + "; ");
    auto other = call();
    ASSERT_TRUE(reaches(std::uintmax_t{4} * 48000 * 8)) << errors("first");
    session.end();
    EXPECT_EQ(program.wait(), 0);
    ASSERT_EQ(filesIn(recordings).size(), 1) << errors("first");
    EXPECT_EQ(errors("first").find("Starting transcription"), std::string::npos);
    other.stop(SIGTERM);
    auto next = watch();
    EXPECT_TRUE(says("Starting transcription for: " + filesIn(recordings).front().filename().string())) << errors();
    EXPECT_EQ(end(next), 0);
    EXPECT_EQ(textOf(home / "config/Tessivox/settings.json").find("transcribeAtNextStart"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::testing
