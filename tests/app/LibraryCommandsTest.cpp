#include "app/LibraryCommands.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "app/FakeConsole.h"
#include "base/Error.h"
#include "support/ForwardingFiles.h"
#include "support/Library.h"

namespace tessivox::app {
namespace {

using testing::Library;

class LibraryCommandsTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles files;
    std::optional<Library> library;
    FakeConsole console;
    bool isBeingTranscribed = false;

    void put(const std::string& name, const std::string& text) {
        files.makeFolders(Library::kFolder);
        const auto file = files.create(Library::kFolder / name);
        file->append(std::as_bytes(std::span(text)));
    }
    LibraryCommands commands() {
        if (!library) library.emplace(time, files);
        return LibraryCommands({files, library->utc, *library->storage, Library::kFolder, console,
                                [this](const auto&) { return isBeingTranscribed; }});
    }
    std::string error(base::Task<ExitCode> task) {
        try {
            testing::await(time, std::move(task));
        } catch (const base::Error& failure) {
            return failure.description();
        }
        return "";
    }
    bool exists(const std::string& name) { return files.exists(Library::kFolder / name); }
};

TEST_F(LibraryCommandsTest, ListsWhatAPersonWantsToKnow) {
    put("2026-03-02_10-15-00_Weekly-sync.m4a", testing::silentMovie(3723));
    put("2026-03-02_10-15-00_Weekly-sync_mic.m4a", testing::silentMovie(3723));
    put("2026-03-02_10-15-00_Weekly-sync.txt", "[00:00] Speaker A: Hello.\n");
    auto list = commands();
    EXPECT_EQ(testing::await(time, list.list(false)), ExitCode::done);
    EXPECT_NE(console.output.find("  1:02:03      0 kB  Weekly sync  (transcript, Microphone track)\n"
                                  "    2026-03-02_10-15-00_Weekly-sync.m4a\n"),
              std::string::npos)
        << console.output;
}

TEST_F(LibraryCommandsTest, JSONHoldsNamesOfAnyBytesAndWhatBelongsToThem) {
    put("caf\xE9 \"\n.m4a", testing::silentMovie(60));
    put("caf\xE9 \"\n.summary.txt", "# Title: x\n");
    auto list = commands();
    library->storage->writeMetadata(Library::kFolder / "caf\xE9 \"\n.m4a", "Coffee", library::kTitleAttribute);
    ASSERT_EQ(testing::await(time, list.list(true)), ExitCode::done);
    const auto all = nlohmann::json::parse(console.output);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].at("url"), "file:///home/user/Recordings/caf%E9%20%22%0A.m4a");
    EXPECT_EQ(all[0].at("title"), "Coffee");
    EXPECT_EQ(all[0].at("duration"), 60);
    EXPECT_EQ(all[0].at("size"), testing::silentMovie(60).size());
    EXPECT_EQ(all[0].at("hasSummary"), true);
    EXPECT_EQ(all[0].at("hasTranscript"), false);
    EXPECT_TRUE(all[0].at("gist").is_null());
}

TEST_F(LibraryCommandsTest, AnEmptyFolderIsAnEmptyListAndASentence) {
    auto list = commands();
    EXPECT_EQ(testing::await(time, list.list(true)), ExitCode::done);
    EXPECT_EQ(console.output, "[]\n");
    console.output.clear();
    EXPECT_EQ(testing::await(time, list.list(false)), ExitCode::done);
    EXPECT_EQ(console.output, "");
    ASSERT_EQ(console.messages.size(), 1U);
}

TEST_F(LibraryCommandsTest, RenamesAndTrashesARecordingWithWhatBelongsToIt) {
    put("a.m4a", testing::silentMovie(1));
    put("a.txt", "text");
    auto all = commands();
    EXPECT_EQ(testing::await(time, all.rename(Library::kFolder / "a.m4a", "Standup.m4a")), ExitCode::done);
    EXPECT_TRUE(exists("Standup.m4a") && exists("Standup.txt") && !exists("a.m4a"));
    EXPECT_EQ(testing::await(time, all.trash(Library::kFolder / "Standup.m4a")), ExitCode::done);
    EXPECT_FALSE(exists("Standup.m4a") || exists("Standup.txt"));
    EXPECT_EQ(files.list(Library::kTrash / "files").size(), 2U);
}

TEST_F(LibraryCommandsTest, RefusesWithASentenceWhatIsNoRecordingOrNoName) {
    put("a.m4a", testing::silentMovie(1));
    put("a_mic.m4a", testing::silentMovie(1));
    auto all = commands();
    EXPECT_NE(error(all.trash(Library::kFolder / "b.m4a")).find("tessivox list"), std::string::npos);
    EXPECT_NE(error(all.trash(Library::kFolder / "a_mic.m4a")).find("track of \"a.m4a\""), std::string::npos);
    EXPECT_NE(error(all.rename(Library::kFolder / "a.m4a", "../b")), "");
    isBeingTranscribed = true;
    EXPECT_NE(error(all.rename(Library::kFolder / "a.m4a", "b")).find("wait for the transcript"), std::string::npos);
    EXPECT_NE(error(all.trash(Library::kFolder / "a.m4a")).find("wait for the transcript"), std::string::npos);
    EXPECT_TRUE(exists("a.m4a") && exists("a_mic.m4a"));
}

TEST_F(LibraryCommandsTest, AnArgumentIsAPathOrANameInTheRecordingsFolder) {
    put("a.m4a", "");
    put("b", "");
    EXPECT_EQ(meantRecording(files, Library::kFolder, "a"), Library::kFolder / "a.m4a");
    EXPECT_EQ(meantRecording(files, Library::kFolder, "a.m4a"), Library::kFolder / "a.m4a");
    EXPECT_EQ(meantRecording(files, Library::kFolder, "/elsewhere/../a.m4a"), "/a.m4a");
    EXPECT_EQ(meantRecording(files, Library::kFolder, "missing"), Library::kFolder / "missing");
    const auto here = std::filesystem::current_path();
    files.makeFolders(here);
    EXPECT_EQ(meantRecording(files, Library::kFolder, "./a.m4a"), here / "a.m4a");
    EXPECT_EQ(meantRecording(files, "/elsewhere", Library::kFolder / "a"), Library::kFolder / "a.m4a");
    EXPECT_EQ(meantRecording(files, "/elsewhere", Library::kFolder / "b"), Library::kFolder / "b");
}

/// A disk on which /link names the folder /far/away.
struct LinkedFiles final : testing::ForwardingFiles {
    base::Files& disk;
    explicit LinkedFiles(base::Files& files) : ForwardingFiles(files), disk(files) {}
    static Path followed(const Path& path) {
        const auto text = path.string();
        return text.starts_with("/link") ? Path("/far/away" + text.substr(5)) : path;
    }
    std::optional<base::FileStatus> status(const Path& path) const override { return disk.status(followed(path)); }
    Path canonical(const Path& path) const override { return disk.canonical(followed(path)); }
};

TEST_F(LibraryCommandsTest, APathThroughALinkMeansTheFileThatTheSystemFindsThere) {
    files.put("/far/a.m4a", "");
    files.put("/far/away/b.m4a", "");
    files.put("/a.m4a", "");
    const LinkedFiles linked(files);
    EXPECT_EQ(meantRecording(linked, Library::kFolder, "/link/../a.m4a"), "/far/a.m4a");
    EXPECT_EQ(meantRecording(linked, Library::kFolder, "/link/b"), "/far/away/b.m4a");
}

TEST_F(LibraryCommandsTest, ALengthThatNoRecordingHasIsCut) {
    ListedRecording listed;
    const testing::UtcTime utc;
    const std::map<double, std::string> texts{{1.8e19, " 9999:00:00 "}, {-5, "  0:00:00 "}};
    for (const auto& [seconds, text] : texts) {
        listed.recording.duration = seconds;
        EXPECT_NE(recordingsText({listed}, utc).find(text), std::string::npos) << seconds;
    }
}

}  // namespace
}  // namespace tessivox::app
