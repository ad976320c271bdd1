#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "library/RecordingStorage.h"
#include "support/CrashingFiles.h"
#include "support/ForwardingFiles.h"
#include "support/Library.h"

namespace tessivox::library {
namespace {

using testing::CrashingFiles;
using testing::Library;
using Path = std::filesystem::path;
using Unsynced = CrashingFiles::Unsynced;
using Places = std::vector<Path>;

const std::vector<std::string> kSuffixes{".m4a", ".txt", ".summary.txt", "_mic.m4a", "_system.m4a"};

std::string contentsOf(const std::string& suffix) { return "contents of " + suffix + std::string(500, '.'); }

/// A recording with all its siblings and a title, on a disk with a power cut.
struct Trial {
    CrashingFiles disk;
    testing::FilesWithoutAttributes plain{disk};
    testing::ManualRuntime time;
    std::optional<Library> library;
    std::uint64_t before = 0;

    explicit Trial(bool hasAttributes) {
        for (const auto& suffix : kSuffixes) disk.put(Library::kFolder / ("old" + suffix), contentsOf(suffix));
        base::Files& files = hasAttributes ? static_cast<base::Files&>(disk) : plain;
        library.emplace(time, files);
        time.settle();
        library->storage->writeMetadata(Library::kFolder / "old.m4a", "Old title", kTitleAttribute);
        if (hasAttributes) disk.open(Library::kFolder / "old.m4a", base::FileAccess::update)->sync();
        before = disk.operationCount();
    }
    /// True if it ran to its end.
    bool run(const std::function<void(RecordingStorage&, const Recording&)>& operation) {
        try {
            operation(*library->storage, library->entry("old"));
            return !disk.isHalted();
        } catch (const base::Error&) {
            return false;
        }
    }
    Places existing(const std::vector<Path>& candidates) {
        Places found;
        std::set<std::uint64_t> files;
        for (const auto& path : candidates) {
            // While a file goes from folder to folder it may be seen in both.
            if (const auto status = disk.status(path); status && files.insert(status->inode).second)
                found.push_back(path);
        }
        return found;
    }
    void expectOnce(const std::string& suffix, const std::vector<Path>& candidates) {
        const auto found = existing(candidates);
        ASSERT_EQ(found.size(), 1U) << suffix << " is there " << found.size() << " times";
        EXPECT_EQ(disk.readAll(found.front(), 10000), contentsOf(suffix));
    }
    std::optional<std::string> titleOf(const Path& path) {
        return library->storage->readMetadata(path, kTitleAttribute);
    }
};

void rename(RecordingStorage& storage, const Recording& recording) { storage.renameRecording(recording, "New-name"); }
void trash(RecordingStorage& storage, const Recording& recording) { storage.deleteRecording(recording); }

/// Cuts the power before each operation of what is done, and once after the last.
void forEachCut(bool hasAttributes, const std::vector<Unsynced>& kinds,
                const std::function<void(RecordingStorage&, const Recording&)>& operation,
                const std::function<void(Trial&, bool isDone)>& check) {
    Trial whole(hasAttributes);
    ASSERT_TRUE(whole.run(operation));
    const auto count = whole.disk.operationCount() - whole.before;
    EXPECT_GT(count, 6U);
    for (const auto kind : kinds) {
        for (std::uint64_t n = 1; n <= count + 1 && !::testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE("cut at operation " + std::to_string(n) + ", kind " + std::to_string(static_cast<int>(kind)));
            Trial trial(hasAttributes);
            trial.disk.haltAt(trial.before + n);
            const bool isDone = trial.run(operation);
            trial.disk.crash(kind, n);
            check(trial, isDone);
        }
    }
}

TEST(LibraryFaultTest, APowerCutAtAnyPointOfARenameLeavesEveryFileOnceUnderItsOldOrNewName) {
    for (const bool hasAttributes : {true, false}) {
        forEachCut(hasAttributes, {Unsynced::lost, Unsynced::prefix, Unsynced::zeros, Unsynced::kept}, rename,
                   [&](Trial& trial, bool isDone) {
                       const auto& folder = Library::kFolder;
                       for (const auto& suffix : kSuffixes) {
                           std::vector<Path> places{folder / ("New-name" + suffix)};
                           if (!isDone) places.push_back(folder / ("old" + suffix));
                           trial.expectOnce(suffix, places);
                       }
                       const auto main = trial.existing({folder / "New-name.m4a", folder / "old.m4a"}).at(0);
                       const auto title = trial.titleOf(main);
                       EXPECT_TRUE(title == "Old title" || (main.stem() == "New-name" && title == "New name"))
                           << title.value_or("none");
                   });
    }
}

TEST(LibraryFaultTest, APowerCutAtAnyPointOfADeleteLeavesEveryFileOnceInItsPlaceOrInTheTrash) {
    // Without arbitrary parts: file systems carry out a move from folder to folder as a whole or not at all.
    for (const bool hasAttributes : {true, false}) {
        forEachCut(
            hasAttributes, {Unsynced::lost, Unsynced::zeros, Unsynced::kept}, trash, [&](Trial& trial, bool isDone) {
                for (const auto& suffix : kSuffixes) {
                    const auto trashed = Library::kTrash / "files" / ("old" + suffix);
                    const auto info = Library::kTrash / "info" / ("old" + suffix + ".trashinfo");
                    std::vector<Path> places{trashed};
                    if (!isDone) places.push_back(Library::kFolder / ("old" + suffix));
                    trial.expectOnce(suffix, places);
                    if (!trial.disk.exists(trashed)) continue;
                    ASSERT_TRUE(trial.disk.exists(info)) << "in the Trash without a word on its origin";
                    EXPECT_NE(trial.disk.readAll(info, 1000).find("\nPath=/home/user/Recordings/old" + suffix + "\n"),
                              std::string::npos);
                }
            });
    }
}

TEST(LibraryFaultTest, AnOperationThatFailsOnceLosesNothingAndADeleteCanBeTriedAgain) {
    for (const auto fault :
         {CrashingFiles::Fault::noSpace, CrashingFiles::Fault::ioError, CrashingFiles::Fault::shortWrite}) {
        for (std::uint64_t n = 1; n < 60 && !::testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE("at operation " + std::to_string(n));
            Trial renamed(false), trashed(false);
            renamed.disk.failAt(renamed.before + n, fault);
            (void)renamed.run(rename);
            trashed.disk.failAt(trashed.before + n, fault);
            const bool isDone = trashed.run(trash) || trashed.run(trash);
            EXPECT_TRUE(isDone);
            for (const auto& suffix : kSuffixes) {
                renamed.expectOnce(suffix,
                                   {Library::kFolder / ("old" + suffix), Library::kFolder / ("New-name" + suffix)});
                trashed.expectOnce(suffix, {Library::kTrash / "files" / ("old" + suffix)});
            }
        }
    }
}

}  // namespace
}  // namespace tessivox::library
