#include "app/ShowCommand.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/FakeConsole.h"
#include "base/Error.h"
#include "support/Library.h"

namespace tessivox::app {
namespace {

using testing::Library;

class ShowCommandTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles files;
    testing::UtcTime utc;
    FakeConsole console;

    ShowCommandTest() { files.makeFolders(Library::kFolder); }

    void put(const std::string& name, const std::string& text) {
        const auto file = files.create(Library::kFolder / name);
        file->append(std::as_bytes(std::span(text)));
    }
    std::string shown(const ShowOptions& options) {
        console.output.clear();
        EXPECT_EQ(testing::await(time, showCommand(files, utc, Library::kFolder, options, console)), ExitCode::done);
        return console.output;
    }
    std::string error(const ShowOptions& options) {
        try {
            testing::await(time, showCommand(files, utc, Library::kFolder, options, console));
        } catch (const base::Error& failure) {
            return failure.description();
        }
        return "";
    }
};

TEST_F(ShowCommandTest, FindsTheTextByEveryNameOfTheRecordingOrItsOwn) {
    put("a talk.m4a", "");
    put("a talk.txt", "[00:01] A: said\n");
    put("a talk.summary.txt", "# Title: Talk\n\n## Summary\n- **one**\n");
    put("old.txt", "[00:01] A: its sound is gone\n");
    put("B.M4A", "");
    put("B.txt", "upper\n");
    for (const auto* name : {"a talk", "a talk.m4a", "a talk.txt", "/home/user/Recordings/a talk.m4a"})
        EXPECT_EQ(shown({name}), "[00:01] A: said\n") << name;
    for (const auto* name : {"a talk", "a talk.m4a", "a talk.txt", "a talk.summary.txt"})
        EXPECT_EQ(shown({name, true}), "Talk\n\nSummary\n\u2022  one\n") << name;
    EXPECT_EQ(shown({"a talk.summary.txt"}), shown({"a talk", true}));
    EXPECT_EQ(shown({"old"}), "[00:01] A: its sound is gone\n");
    EXPECT_EQ(shown({"B.M4A"}), "upper\n");
}

TEST_F(ShowCommandTest, SaysHowToGetWhatIsNotThere) {
    put("it's a talk.m4a", "");
    EXPECT_NE(error({"it's a talk"}).find("tessivox transcribe '/home/user/Recordings/it'\\''s a talk.m4a'"),
              std::string::npos)
        << error({"it's a talk"});
    EXPECT_NE(error({"it's a talk", true}).find("tessivox summarize "), std::string::npos);
    EXPECT_NE(error({"none"}).find("tessivox list"), std::string::npos);
    EXPECT_NE(error({"none.txt"}).find("tessivox list"), std::string::npos);
    put("it's a talk.summary.txt", "");
    EXPECT_NE(error({"it's a talk.summary.txt", false, ShowFormat::vtt}).find("no times"), std::string::npos);
}

TEST_F(ShowCommandTest, TellsWhatIsKnownOfTheRecording) {
    put("2026-03-02_10-15-00_Weekly-sync.m4a", "");
    put("2026-03-02_10-15-00_Weekly-sync.txt", "[00:01] A: said\n");
    put("caf\xE9.txt", "[00:01] A: sa\xEF\x64\n");
    const auto recording = Library::kFolder / "2026-03-02_10-15-00_Weekly-sync.m4a";
    const ShowOptions options{recording, false, ShowFormat::json};
    EXPECT_EQ(nlohmann::json::parse(shown(options)).at("title"), "Weekly sync");

    library::RecordingMetadata(files).write(recording, "The sync", library::kTitleAttribute);
    library::RecordingMetadata(files).write(recording, "We met.", library::kGistAttribute);
    const auto json = nlohmann::json::parse(shown(options));
    EXPECT_EQ(json.at("title"), "The sync");
    EXPECT_EQ(json.at("gist"), "We met.");
    EXPECT_EQ(json.at("recording"), recording.string());
    EXPECT_EQ(json.at("date").get<std::string>().size(), 24U);
    const auto markdown = shown({recording, false, ShowFormat::markdown});
    EXPECT_EQ(markdown.find("# The sync\n\n"), 0U) << markdown;
    EXPECT_NE(markdown.find("\n\n> We met.\n\n**A** (00:01) said\n"), std::string::npos) << markdown;

    const auto odd = nlohmann::json::parse(shown({"caf\xE9", false, ShowFormat::json}));
    EXPECT_TRUE(odd.at("recording").is_null() && odd.at("date").is_null() && odd.at("gist").is_null());
    EXPECT_EQ(odd.at("segments").at(0).at("text"),
              "sa\uFFFD"
              "d");
}

TEST_F(ShowCommandTest, NoTextSteersTheTerminal) {
    put("a.txt", std::string("[1] \x1b[2JA: one\0two\x7f\n[2] \u009b31mred\n", 33));
    for (const auto format : {ShowFormat::text, ShowFormat::markdown, ShowFormat::srt, ShowFormat::vtt}) {
        const auto text = shown({"a", false, format});
        EXPECT_EQ(text.find_first_of(std::string("\x1b\0\x7f\xC2", 4)), std::string::npos) << text;
    }
    EXPECT_EQ(shown({"a"}), "[1]  [2JA: one two \n[2]  31mred\n");
}

}  // namespace
}  // namespace tessivox::app
