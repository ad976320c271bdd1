#include "app/ImportCommand.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/FakeConsole.h"
#include "transcription/TranscriptionTest.h"

namespace tessivox::app {
namespace {

using testing::Library;
using transcription::Path;
using transcription::Started;

/// Copies what it converts.
struct FakeConversion final : library::AudioConversion {
    base::Files& files;
    std::function<void()> inTheMiddle = [] {};

    explicit FakeConversion(base::Files& disk) : files(disk) {}
    double convertToM4A(const Path& source, const Path& target, const audio::AudioEncoding&,
                        const std::function<void(double)>& progress, const std::stop_token& stop) override {
        progress(0.41);
        inTheMiddle();
        if (stop.stop_requested()) throw base::Error("fake", 1, "Interrupted.");
        const auto text = files.readAll(source, 1000);
        files.open(target, base::FileAccess::update)->append(std::as_bytes(std::span(text)));
        return 7;
    }
};

class ImportCommandTest : public transcription::TranscriptionTest {
protected:
    const Path desk = "/home/user/Desk";
    FakeConsole console;
    transcription::Process process{time, files, server};
    FakeConversion conversion{files};
    TranscriptionCommands transcriptions{{time, files, *process.service, console, [] { return false; }}};
    int uuids = 0;
    std::optional<ImportCommand> command;

    void SetUp() override {
        process.library.lengths.answer = 60;
        command.emplace(ImportCommand::Parts{
            time,
            {time,
             files,
             process.library.settings,
             process.signals.analytics,
             *process.library.storage,
             process.library.lengths,
             conversion,
             [this] { return "00000000-0000-4000-8000-" + std::to_string(100000000000 + ++uuids); },
             {}},
            transcriptions,
            console});
        for (const auto* name : {"a.wav", "b.MP3", "notes.txt"}) files.put(desk / name, "sound");
    }
    std::string line(const std::string& name) const { return (Library::kFolder / name).string() + "\n"; }
};

TEST_F(ImportCommandTest, ImportsEachFileThatItCanAndNamesTheOthers) {
    process.library.settings.autoTranscribe.set(false);
    EXPECT_EQ(
        testing::await(time, command->run({desk / "a.wav", desk / "notes.txt", desk / "none.wav", desk / "b.MP3"})),
        ExitCode::failed);
    EXPECT_EQ(console.output, line("a.m4a") + line("b.m4a"));
    EXPECT_TRUE(console.said("\"notes.txt\": Unsupported audio format: .txt"));
    EXPECT_TRUE(console.said("\"none.wav\": There is no such file."));
    const std::set<std::string> shown(console.statuses.begin(), console.statuses.end());
    EXPECT_TRUE(shown.contains("[1/4] Converting to M4A... 41 %")) << ::testing::PrintToString(shown);
    EXPECT_EQ(console.statuses.back(), "");
    EXPECT_TRUE(server.requests.empty());
}

TEST_F(ImportCommandTest, MakesTheTranscriptsAfterTheImportsWhereTheSettingsWantThem) {
    serverTakes("t");
    taskGives("[00:01] A: Hello.");
    serverTakes("u");
    taskGives("[00:01] A: Again.");
    EXPECT_EQ(testing::await(time, command->run({desk / "a.wav", desk / "b.MP3"})), ExitCode::done);
    EXPECT_EQ(console.output, line("a.m4a") + line("b.m4a") + line("a.txt") + line("b.txt"));
    EXPECT_EQ(textOf(Library::kFolder / "b.txt"), "[00:01] A: Again.");
}

TEST_F(ImportCommandTest, AnInterruptionLeavesNothingOfTheFileThatIsBeingImported) {
    conversion.inTheMiddle = [this] { command->interrupt(); };
    const auto before = files.list(Library::kFolder).size();
    const auto interrupted = Started<ExitCode>(time, command->run({desk / "a.wav", desk / "b.MP3"}));
    EXPECT_EQ(interrupted.result, ExitCode::failed);
    EXPECT_EQ(console.output, "");
    EXPECT_TRUE(console.said("\"a.wav\": Interrupted"));
    EXPECT_FALSE(console.said("b.MP3"));
    EXPECT_EQ(files.list(Library::kFolder).size(), before);
    EXPECT_TRUE(server.requests.empty());
}

}  // namespace
}  // namespace tessivox::app
