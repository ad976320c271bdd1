#include "library/RecordingStorage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "library/RecordingName.h"
#include "support/ForwardingFiles.h"
#include "support/Library.h"

namespace tessivox::library {
namespace {

using namespace std::chrono_literals;
using testing::silentMovie;
using Path = std::filesystem::path;

const auto& kFolder = testing::Library::kFolder;
const auto& kTrash = testing::Library::kTrash;

/// Counts what a scan costs.
struct CountingFiles final : testing::ForwardingFiles {
    using ForwardingFiles::ForwardingFiles;
    mutable std::vector<Path> opened, looked;
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override {
        opened.push_back(path);
        return ForwardingFiles::open(path, access);
    }
    std::optional<base::FileStatus> status(const Path& path) const override {
        if (path.parent_path() == kFolder) looked.push_back(path);
        return ForwardingFiles::status(path);
    }
};

class RecordingStorageTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    testing::CrashingFiles disk;
    CountingFiles files{disk};
    std::optional<testing::Library> library;
    std::vector<std::string> events;
    base::Subscription moved, trashed;

    /// A recording made that many minutes after the others' beginning.
    void put(const std::string& name, int minute = 0, int seconds = 5) {
        disk.setTime(base::WallTime(std::chrono::hours(24 * 365 * 55) + std::chrono::minutes(minute)));
        disk.put(kFolder / name, silentMovie(seconds));
    }
    RecordingStorage& open() {
        library.emplace(time, files);
        auto& storage = *library->storage;
        moved = storage.onMoved.observe([this](const Path& from, const Path& to) {
            events.push_back(from.filename().string() + " -> " + to.filename().string());
        });
        trashed =
            storage.onTrashed.observe([this](const Path& url) { events.push_back("x " + url.filename().string()); });
        time.settle();
        files.opened.clear();
        return storage;
    }
    std::vector<std::string> namesIn(const Path& folder) {
        std::vector<std::string> names;
        for (const auto& name : disk.list(folder)) names.push_back(name.string());
        std::ranges::sort(names);
        return names;
    }
    using Names = std::vector<std::string>;
};

TEST_F(RecordingStorageTest, ListsMainFilesNewestFirstWithTheirTracks) {
    put("old.m4a", 1, 7);
    put("standup.m4a", 2);
    put("standup_system.m4a", 2);
    put("standup_mic.M4A", 2);
    put("LOUD.M4A", 3);
    put("lost_mic.m4a", 4);
    put(".standup.part", 5);
    put(".hidden.m4a", 5);
    put("rescued.caf", 5);
    put("standup.txt", 5);
    put("folder.m4a/inside.m4a", 5);
    put("folder_mic.m4a", 0);
    auto& storage = open();
    EXPECT_EQ(library->names(), "lost_mic LOUD standup old folder_mic");
    const auto entry = library->entry("standup");
    EXPECT_EQ(entry.subTracks, (std::vector<SubTrack>{{kFolder / "standup_mic.M4A", "Microphone"},
                                                      {kFolder / "standup_system.m4a", "System audio"}}));
    EXPECT_EQ(entry.url, kFolder / "standup.m4a");
    EXPECT_EQ(entry.date, disk.status(entry.url)->birth);
    EXPECT_TRUE(library->entry("lost_mic").subTracks.empty());
    EXPECT_EQ(library->entry("old").duration, 7);
    EXPECT_NE(storage.recordings.get()[0].id, storage.recordings.get()[1].id);
}

TEST_F(RecordingStorageTest, ARescanOpensOnlyFilesThatWereReplacedAndLooksAtEachOnce) {
    put("a.m4a", 1, 5);
    put("b.m4a", 2, 6);
    put("b_mic.m4a", 2, 6);
    put("a.txt");
    open();
    const auto firstIDs = library->entry("a").id;
    files.looked.clear();
    library->scan();
    EXPECT_TRUE(files.opened.empty());
    EXPECT_EQ(std::ranges::count(files.looked, kFolder / "a.m4a"), 1);
    EXPECT_EQ(files.looked.size(), 2U) << "tracks and texts are not looked at";
    EXPECT_NE(library->entry("a").id, firstIDs);

    put("a.m4a", 3, 50);
    library->scan();
    EXPECT_EQ(files.opened, std::vector<Path>{kFolder / "a.m4a"});
    EXPECT_EQ(library->entry("a").duration, 50);
    disk.remove(kFolder / "a.m4a");
    library->scan();
    EXPECT_EQ(library->names(), "b");
}

TEST_F(RecordingStorageTest, AsksTheMediaLibraryOnlyWhereTheHeaderSaysNothing) {
    put("good.m4a");
    disk.put(kFolder / "empty.m4a", "");
    disk.put(kFolder / "odd.m4a", "RIFF....");
    library.emplace(time, files);
    library->lengths.answer = 12.5;
    time.settle();
    EXPECT_EQ(library->entry("odd").duration, 12.5);
    EXPECT_EQ(library->entry("empty").duration, 0);
    EXPECT_EQ(library->lengths.asked, 1);
    library->lengths.answer = std::nan("");
    disk.put(kFolder / "odd.m4a", "RIFF.....");
    library->scan();
    EXPECT_EQ(library->entry("odd").duration, 0);
}

TEST_F(RecordingStorageTest, KeepsTheOldListWhileAScanRunsAndStartsNoSecondOne) {
    put("a.m4a");
    auto& storage = open();
    put("b.m4a", 1);
    time.stall("com.tessivox.library.scan", true);
    storage.loadRecordings();
    storage.loadRecordings();
    time.settle();
    EXPECT_TRUE(storage.isLoading.get());
    EXPECT_EQ(library->names(), "a");
    int changes = -1;
    const auto watching = storage.recordings.observe([&](const auto&) { ++changes; });
    time.stall("com.tessivox.library.scan", false);
    EXPECT_FALSE(storage.isLoading.get());
    EXPECT_EQ(library->names(), "b a");
    EXPECT_EQ(changes, 1);
}

TEST_F(RecordingStorageTest, AMissingFolderIsEmptyAndARenameDuringAScanIsNotLostWithIt) {
    auto& storage = open();
    disk.makeFolders(kFolder);
    put("a.m4a");
    library->scan();
    // The scan reads the folder, and before its result comes home the file gets another name.
    storage.loadRecordings();
    time.post([&] { storage.renameRecording(library->entry("a"), "b"); });
    time.settle();
    EXPECT_EQ(library->names(), "b");
    EXPECT_EQ(storage.recordings.get().front().url, kFolder / "b.m4a");
    library->settings.recordingsDirectoryPath.set("/nowhere");
    library->scan();
    EXPECT_TRUE(storage.recordings.get().empty());
}

TEST_F(RecordingStorageTest, RenamesARecordingWithItsSiblingsTitleAndDuration) {
    put("2026-03-02_10-15-00.m4a");
    put("2026-03-02_10-15-00_mic.m4a");
    put("2026-03-02_10-15-00_system.m4a");
    disk.put(kFolder / "2026-03-02_10-15-00.txt", "words");
    disk.put(kFolder / "2026-03-02_10-15-00.summary.txt", "sum");
    auto& storage = open();
    const auto before = storage.recordings.get().front();
    storage.renameRecording(storage.recordings.get().front(), "2026-03-02_10-15-00_Weekly-sync");
    const auto after = storage.recordings.get().front();
    const std::string base = "2026-03-02_10-15-00_Weekly-sync";
    EXPECT_EQ(namesIn(kFolder),
              (Names{base + ".m4a", base + ".summary.txt", base + ".txt", base + "_mic.m4a", base + "_system.m4a"}));
    EXPECT_EQ(after.id, before.id);
    EXPECT_EQ(after.date, before.date);
    EXPECT_EQ(after.duration, before.duration);
    EXPECT_EQ(after.name, base);
    EXPECT_EQ(after.url, kFolder / (base + ".m4a"));
    EXPECT_EQ(after.subTracks[1], (SubTrack{kFolder / (base + "_system.m4a"), "System audio"}));
    EXPECT_EQ(storage.readMetadata(after.url, kTitleAttribute), "Weekly sync");
    EXPECT_EQ(events, Names{"2026-03-02_10-15-00.m4a -> " + base + ".m4a"});
    library->scan();
    EXPECT_TRUE(files.opened.empty()) << "the duration moves with the file";

    storage.renameRecording(after, "2026-03-02_10-15-00");
    EXPECT_EQ(storage.readMetadata(kFolder / "2026-03-02_10-15-00.m4a", kTitleAttribute), std::nullopt);
}

TEST_F(RecordingStorageTest, ATakenNameChangesNothingAndTakenSiblingsKeepTheirOldNames) {
    put("a.m4a", 1);
    put("a_mic.m4a", 1);
    disk.put(kFolder / "a.txt", "words");
    put("taken.m4a", 2);
    disk.put(kFolder / "b.txt", "other words");
    put("b_mic.m4a", 0);
    auto& storage = open();
    const auto before = namesIn(kFolder);
    try {
        storage.renameRecording(library->entry("a"), "taken");
        ADD_FAILURE() << "took a name that was taken";
    } catch (const base::FileError& error) {
        EXPECT_EQ(error.description(), "There is already a recording \"taken\": choose another name.");
    }
    storage.renameRecording(library->entry("a"), "a");
    EXPECT_THROW(storage.renameRecording(library->entry("a"), "../a"), RecordingNameError);
    EXPECT_EQ(namesIn(kFolder), before);
    EXPECT_TRUE(events.empty());
    storage.renameRecording(library->entry("a"), "b");
    EXPECT_EQ(namesIn(kFolder), (Names{"a.txt", "a_mic.m4a", "b.m4a", "b.txt", "b_mic.m4a", "taken.m4a"}));
    EXPECT_EQ(library->entry("b").subTracks, (std::vector<SubTrack>{{kFolder / "a_mic.m4a", "Microphone"}}));
    EXPECT_EQ(disk.readAll(kFolder / "b.txt", 100), "other words");
}

TEST_F(RecordingStorageTest, TrashesAllFilesOfARecordingInOrderAndOnlyThose) {
    put("a.m4a", 1);
    put("a_mic.m4a");
    put("a_system.m4a");
    put("ab.m4a");
    disk.put(kFolder / "a.txt", "words");
    disk.put(kFolder / "a.summary.txt", "sum");
    auto& storage = open();
    storage.deleteRecording(storage.recordings.get().front());
    EXPECT_EQ(namesIn(kFolder), Names{"ab.m4a"});
    EXPECT_EQ(namesIn(kTrash / "files"), (Names{"a.m4a", "a.summary.txt", "a.txt", "a_mic.m4a", "a_system.m4a"}));
    EXPECT_EQ(library->names(), "ab");
    EXPECT_EQ(events, Names{"x a.m4a"});
}

TEST_F(RecordingStorageTest, AFailureInTheMiddleOfADeleteLeavesTheRestAndTheListAndASecondTryEndsIt) {
    put("a.m4a", 1);
    put("a_mic.m4a");
    disk.put(kFolder / "a.txt", "words");
    disk.put(kTrash / "info/x", "");
    disk.put(kTrash / "files/x", "");
    auto& storage = open();
    const auto recording = library->entry("a");
    // Making two folders, and seven operations for a file: the second file's description cannot be written.
    disk.failAt(disk.operationCount() + 13, testing::CrashingFiles::Fault::noSpace);
    EXPECT_THROW(storage.deleteRecording(recording), base::FileError);
    EXPECT_EQ(library->names(), "a");
    EXPECT_EQ(namesIn(kFolder), (Names{"a.txt", "a_mic.m4a"}));
    EXPECT_EQ(namesIn(kTrash / "info"), (Names{"a.m4a.trashinfo", "x"})) << "no description without its file";
    storage.deleteRecording(recording);
    EXPECT_TRUE(namesIn(kFolder).empty());
    EXPECT_TRUE(storage.recordings.get().empty());
}

TEST_F(RecordingStorageTest, FollowsAFileThatAnotherPartHasRenamed) {
    put("a.m4a", 1);
    put("a_mic.m4a", 1);
    put("a_system.m4a", 1);
    auto& storage = open();
    disk.move(kFolder / "a.m4a", kFolder / "b.m4a");
    disk.move(kFolder / "a_mic.m4a", kFolder / "b_mic.m4a");
    storage.recordingMoved(storage.recordings.get().front().url, kFolder / "b.m4a");
    const auto entry = library->entry("b");
    EXPECT_EQ(entry.url, kFolder / "b.m4a");
    EXPECT_EQ(entry.subTracks[0].url, kFolder / "b_mic.m4a");
    EXPECT_EQ(entry.subTracks[1].url, kFolder / "a_system.m4a");
    EXPECT_EQ(events, Names{"a.m4a -> b.m4a"});
    storage.recordingMoved(kFolder / "unknown.m4a", kFolder / "c.m4a");
    EXPECT_EQ(library->names(), "b");
}

TEST_F(RecordingStorageTest, ShowsANewFileAtTheHeadOnceAndDoesNotReadItAgain) {
    put("a.m4a", 1000000);
    auto& storage = open();
    put("b.m4a", 2);
    storage.addRecording(kFolder / "b.m4a", 4.5);
    storage.addRecording(kFolder / "b.m4a", 9);
    EXPECT_EQ(library->names(), "b a");
    EXPECT_EQ(library->entry("b").duration, 4.5);
    EXPECT_EQ(library->entry("b").date, time.wallNow());
    library->scan();
    EXPECT_EQ(library->names(), "a b") << "the scan knows the file's own date";
    EXPECT_EQ(library->entry("b").duration, 4.5);
    EXPECT_TRUE(files.opened.empty());
}

}  // namespace
}  // namespace tessivox::library
