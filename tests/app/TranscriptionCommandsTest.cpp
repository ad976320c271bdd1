#include "app/TranscriptionCommands.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "app/FakeConsole.h"
#include "transcription/TranscriptionTest.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;
using testing::FakeHttpClient;
using testing::Library;
using transcription::Path;
using transcription::Started;

class TranscriptionCommandsTest : public transcription::TranscriptionTest {
protected:
    FakeConsole console;
    bool isSomebodyRunning = false;
    transcription::Process process{time, files, server};
    TranscriptionCommands commands{{time, files, *process.service, console, [this] { return isSomebodyRunning; }}};
    const Path transcript = Library::kFolder / "2026-01-15_10-30-00.txt";
    const Path summary = Library::kFolder / "2026-01-15_10-30-00.summary.txt";

    TranscriptionCommands::Request request(bool waits = false) const {
        TranscriptionCommands::Request wanted;
        wanted.recording = url;
        wanted.waits = waits;
        return wanted;
    }
    Started<ExitCode> transcribing(bool waits = false) {
        return Started<ExitCode>(time, commands.transcribe(request(waits)));
    }
    std::string failure(base::Task<ExitCode> command) { return Started<ExitCode>(time, std::move(command)).failure(); }
    std::string line(const Path& path) const { return path.string() + "\n"; }
};

TEST_F(TranscriptionCommandsTest, WritesThePathOfTheTranscriptUnderTheNameThatItsTitleGave) {
    serverTakes("t");
    taskIs("processing");
    taskGives("[00:01] A: Hello.", R"(,"title":"Budget Q3")");
    auto wanted = request();
    wanted.tellsRecording = true;
    EXPECT_EQ(testing::await(time, commands.transcribe(wanted)), ExitCode::done);
    const auto named = Library::kFolder / "2026-01-15_10-30-00_Budget-Q3";
    EXPECT_EQ(console.output, named.string() + ".m4a\n" + named.string() + ".txt\n");
    EXPECT_TRUE(console.messages.empty());
    const std::set<std::string> shown(console.statuses.begin(), console.statuses.end());
    EXPECT_TRUE(shown.contains("Uploading 00:00") && shown.contains("Transcribing 00:04"));
    EXPECT_EQ(console.statuses.back(), "");
}

TEST_F(TranscriptionCommandsTest, LeavesTheWaitToWhoeverRunsUnlessToldToWait) {
    isSomebodyRunning = true;
    serverTakes("t");
    const auto left = transcribing();
    EXPECT_EQ(left.result, ExitCode::done);
    EXPECT_TRUE(console.said("tessivox run"));
    EXPECT_EQ(console.output, "");
    EXPECT_NE(pendingFile().find("\"t\""), std::string::npos);

    // The task is theirs now. Who asks again waits for it, without another upload.
    taskIs("processing");
    taskGives("Hello.");
    EXPECT_EQ(testing::await(time, commands.transcribe(request())), ExitCode::done);
    EXPECT_EQ(uploads(), 1U);
    EXPECT_EQ(console.output, line(transcript));

    files.remove(transcript);
    serverTakes("u");
    taskGives("Hello again.");
    EXPECT_EQ(testing::await(time, commands.transcribe(request(true))), ExitCode::done);
    EXPECT_EQ(textOf(transcript), "Hello again.");
}

TEST_F(TranscriptionCommandsTest, AnInterruptionSaysWhatIsLeftForTheNextTime) {
    server.will("/transcribe/submit", FakeHttpClient::silence());
    auto uploading = transcribing();
    ASSERT_TRUE(uploading.isRunning());
    commands.interrupt();
    time.settle();
    EXPECT_EQ(uploading.result, ExitCode::failed);
    EXPECT_TRUE(console.said("begins anew"));
    EXPECT_EQ(server.abandoned, 1);
    EXPECT_EQ(status(process, url), transcription::TranscriptionStatus::none);

    serverTakes("t");
    taskIs("processing");
    auto waiting = transcribing();
    ASSERT_TRUE(waiting.isRunning());
    commands.interrupt();
    time.settle();
    EXPECT_EQ(waiting.result, ExitCode::failed);
    EXPECT_TRUE(console.said("tessivox transcribe " + url.string()));
    EXPECT_TRUE(console.said("the server goes on"));

    taskGives("Hello.");
    EXPECT_EQ(testing::await(time, commands.transcribe(request())), ExitCode::done);
    EXPECT_EQ(server.requestsTo("/transcribe/submit").size(), 2U);  // the one given up, and one
    EXPECT_EQ(textOf(transcript), "Hello.");
}

TEST_F(TranscriptionCommandsTest, PutsNothingInThePlaceOfATextThatIsThere) {
    files.put(transcript, "edited");
    files.put(summary, "edited too");
    EXPECT_EQ(testing::await(time, commands.transcribe(request(true))), ExitCode::done);
    EXPECT_EQ(testing::await(time, commands.summarize(url)), ExitCode::done);
    EXPECT_EQ(console.output, line(transcript) + line(summary));
    EXPECT_TRUE(console.said("move it away"));
    EXPECT_TRUE(server.requests.empty());
    EXPECT_EQ(textOf(transcript), "edited");
}

TEST_F(TranscriptionCommandsTest, WaitsForAnotherProcessOnlyIfToldToWait) {
    transcription::Process other(time, files, server);
    const FakeHttpClient::Gate gate;
    serverTakes("t");
    server.will(
        "/transcribe/status/",
        FakeHttpClient::json(200, R"({"task_id":"t","status":"completed","text":"Hello.","duration_seconds":60,)"
                                  R"("provider":"p","usage":)" +
                                      kUsage + R"(,"title":"Budget"})")
            .when(gate));
    const auto theirs = transcribe(other);
    ASSERT_TRUE(theirs.isRunning());
    EXPECT_NE(failure(commands.transcribe(request())), "");
    auto ours = transcribing(true);
    time.advance(1min);
    ASSERT_TRUE(ours.isRunning());
    gate.succeed(true);
    time.advance(5s);
    EXPECT_EQ(ours.result, ExitCode::done);
    EXPECT_EQ(console.output, line(Library::kFolder / "2026-01-15_10-30-00_Budget.txt")) << "under its new name";
    EXPECT_EQ(uploads(), 1U);
}

TEST_F(TranscriptionCommandsTest, SilenceIsNoFailureAndAFailureIsTold) {
    serverTakes("t");
    taskGives(" ");
    EXPECT_EQ(testing::await(time, commands.transcribe(request())), ExitCode::done);
    EXPECT_TRUE(console.said("No speech"));
    EXPECT_EQ(console.output, "");

    serverTakes("u");
    taskIs("failed", R"(,"error":"It is no sound.")");
    EXPECT_NE(failure(commands.transcribe(request())), "");
    EXPECT_EQ(console.output, "");
}

TEST_F(TranscriptionCommandsTest, RefusesWithASentenceWhatIsNoRecording) {
    files.put(Library::kFolder / "talk.wav", "");
    TranscriptionCommands::Request wanted;
    wanted.recording = Library::kFolder / "talk.wav";
    EXPECT_NE(failure(commands.transcribe(wanted)).find("tessivox import "), std::string::npos);
    wanted.recording = Library::kFolder / "none.m4a";
    EXPECT_NE(failure(commands.transcribe(wanted)).find("tessivox list"), std::string::npos);
    EXPECT_NE(failure(commands.summarize(url)).find("tessivox transcribe "), std::string::npos);
}

TEST_F(TranscriptionCommandsTest, SummarizesATranscriptAtOnceOrWithIt) {
    const auto answer = R"({"summary":"# Title: Plans\n## Summary\nWe met.","usage":)" + kUsage + "}";
    files.put(transcript, "[00:01] A: Hello.");
    serverSays("/summarize", 200, answer);
    EXPECT_EQ(testing::await(time, commands.summarize(url)), ExitCode::done);
    EXPECT_EQ(console.output, line(Library::kFolder / "2026-01-15_10-30-00_Plans.summary.txt"));

    console.output.clear();
    files.put(url, testing::silentMovie(60));
    serverTakes("t");
    taskGives("[00:01] A: Hello.");
    serverSays("/summarize", 400, "{}");
    auto wanted = request();
    wanted.summarizes = true;
    EXPECT_EQ(testing::await(time, commands.transcribe(wanted)), ExitCode::failed);
    EXPECT_EQ(console.output, line(transcript));
    EXPECT_FALSE(console.messages.empty());
}

TEST_F(TranscriptionCommandsTest, TellsTheQuota) {
    serverSays("/usage", 200, R"({"usage":)" + kUsage + "}");
    server.will("/user/me", FakeHttpClient::json(200, R"({"token":"T"})"));
    EXPECT_EQ(testing::await(time, commands.usage()), ExitCode::done);
    EXPECT_EQ(server.requestsTo("/user/me").size(), 1U);
    EXPECT_TRUE(files.exists(transcription::Process::kFolder / "device-token.json"))
        << "it does not end before it has the device token";
    EXPECT_EQ(console.output, "3 of 10 transcriptions used, 7 left, counted anew from 2026-02\n");
    console.output.clear();
    serverSays("/usage", 200, R"({"usage":)" + kUsedUp + "}");
    EXPECT_EQ(testing::await(time, commands.usage()), ExitCode::done);
    EXPECT_NE(console.output.find("no new ones"), std::string::npos);
    server.will("/usage", FakeHttpClient::silence());
    auto asking = Started<ExitCode>(time, commands.usage());
    commands.interrupt();
    time.settle();
    EXPECT_EQ(asking.result, ExitCode::failed);
}

}  // namespace
}  // namespace tessivox::app
