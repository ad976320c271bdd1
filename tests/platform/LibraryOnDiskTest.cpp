#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "core/JsonPreferences.h"
#include "library/RecordingStorage.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/Library.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

Path temporaryFolder(const char* parent) {
    auto name = std::string(parent) + "/tessivox-test-XXXXXX";
    return {::mkdtemp(name.data())};
}

/// A library on a real disk. Its scans run in virtual time, on this thread.
class LibraryOnDiskTest : public ::testing::Test {
protected:
    posix::EventLoop loop;
    posix::PosixFiles files{loop};
    testing::ManualRuntime time;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    testing::FakeLengths lengths;
    testing::UtcTime utc;
    Path home = temporaryFolder("/tmp");
    Path folder = home / "Recordings";
    core::JsonPreferences preferences{files, time, home / "settings.json", [](const std::string&) {}};
    core::AppSettings settings{preferences, files, {home, home / "data", home, home}, chooser, loginItem};
    Trash trash{files, utc, time, home / "data"};
    std::optional<RecordingStorage> storage;

    ~LibraryOnDiskTest() override { std::filesystem::remove_all(home); }

    RecordingStorage& open(const Path& recordings) {
        folder = recordings;
        files.makeFolders(folder);
        settings.recordingsDirectoryPath.set(folder.string());
        storage.emplace(RecordingStorage::Parts{time, files, settings, trash, lengths, testing::countingIDs()});
        time.settle();
        return *storage;
    }
    void write(const std::string& name, const std::string& contents) {
        std::ofstream(folder / name, std::ios::binary) << contents;
    }
    void scan() {
        storage->loadRecordings();
        time.settle();
    }
    Recording entry(const std::string& name) {
        for (const auto& recording : storage->recordings.get()) {
            if (recording.name == name) return recording;
        }
        throw std::runtime_error("there is no such recording");
    }
    static bool existsIn(const Path& place, const std::string& name) {
        return ::access((place / name).c_str(), F_OK) == 0;
    }
};

TEST_F(LibraryOnDiskTest, NamesOfAnyBytesAreListedRenamedAndTrashed) {
    open(home / "Recordings");
    std::string longest(251, 'x'), katakana;
    while (katakana.size() < 240) katakana += "\u30c6";
    const std::vector<std::string> names{longest,       katakana,   "-rf",  "line\nbreak", "caf\xe9",
                                         "\"'$(id)`\\", " spaces ", "a..b", "100%"};
    for (const auto& name : names) write(name + ".m4a", testing::silentMovie(4));
    scan();
    ASSERT_EQ(storage->recordings.get().size(), names.size());
    for (const auto& name : names) {
        SCOPED_TRACE(name);
        EXPECT_EQ(entry(name).duration, 4);
        const auto target = name.substr(0, 200) + "\xfe\n-" + std::to_string(name.size());
        storage->renameRecording(entry(name), target);
        EXPECT_TRUE(existsIn(folder, target + ".m4a"));
        EXPECT_FALSE(existsIn(folder, name + ".m4a"));
        storage->renameRecording(entry(target), name.substr(0, 243));
        storage->deleteRecording(entry(name.substr(0, 243)));
        const auto trashed = Trash::candidateName(name.substr(0, 243) + ".m4a", 1);
        EXPECT_TRUE(existsIn(home / "data/Trash/files", trashed));
        EXPECT_TRUE(existsIn(home / "data/Trash/info", trashed + ".trashinfo"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    write(longest + ".m4a", testing::silentMovie(4));
    scan();
    storage->deleteRecording(entry(longest));
    EXPECT_TRUE(existsIn(home / "data/Trash/files", Trash::candidateName(longest + ".m4a", 2)));
}

TEST_F(LibraryOnDiskTest, TitlesAreAttributesThatOtherProgramsReadAndMoveWithTheFile) {
    open(home / "Recordings");
    write("a.m4a", testing::silentMovie(4));
    scan();
    if (::setxattr((folder / "a.m4a").c_str(), "user.test", "x", 1, 0) != 0)
        GTEST_SKIP() << "/tmp keeps no attributes here: " << std::strerror(errno);
    storage->renameRecording(entry("a"), "Weekly-sync");
    std::array<char, 64> value{};
    const auto size =
        ::getxattr((folder / "Weekly-sync.m4a").c_str(), "user.com.tessivox.title", value.data(), value.size());
    ASSERT_EQ(size, 11);
    EXPECT_EQ(std::string(value.data(), 11), "Weekly sync");
    EXPECT_FALSE(existsIn(folder, std::string(AttributeFile::kName)));
}

TEST_F(LibraryOnDiskTest, ALinkIsTrashedAndNotWhatItNamesAndARealPathIsRemembered) {
    open(home / "Recordings");
    std::filesystem::create_directory_symlink(folder, home / "shortcut");
    write("target", testing::silentMovie(4));
    std::filesystem::create_symlink(folder / "target", folder / "a.m4a");
    open(home / "shortcut");
    ASSERT_EQ(storage->recordings.get().size(), 1U);
    storage->deleteRecording(storage->recordings.get().front());
    EXPECT_TRUE(std::filesystem::is_symlink(home / "data/Trash/files/a.m4a"));
    EXPECT_TRUE(existsIn(home / "Recordings", "target"));
    EXPECT_NE(files.readAll(home / "data/Trash/info/a.m4a.trashinfo", 1000).find("/Recordings/a.m4a\n"),
              std::string::npos);
}

TEST_F(LibraryOnDiskTest, TellsLinksStickyFoldersAndOwners) {
    std::filesystem::create_directory_symlink("/tmp", home / "link");
    EXPECT_TRUE(files.status(home / "link")->isFolder);
    EXPECT_FALSE(files.linkStatus(home / "link")->isFolder);
    EXPECT_EQ(files.status(home)->owner, files.userID());
    ASSERT_EQ(::chmod(home.c_str(), 01700), 0);
    EXPECT_EQ(files.linkStatus(home)->mode, 01700U);
    EXPECT_EQ(files.canonical(home / "link/../tmp/."), "/tmp");
    EXPECT_THROW((void)files.canonical(home / "missing"), base::FileError);
}

/// A mounted ramfs, which knows no attributes and no birth times, and is a disk of its own.
class MountedRamfs {
public:
    explicit MountedRamfs(const Path& place) : place_(place) {
        std::filesystem::create_directories(place_);
        error_ = ::mount("ramfs", place_.c_str(), "ramfs", 0, nullptr) == 0 ? 0 : errno;
    }
    MountedRamfs(const MountedRamfs&) = delete;
    MountedRamfs& operator=(const MountedRamfs&) = delete;
    ~MountedRamfs() {
        if (error_ == 0) ::umount2(place_.c_str(), MNT_DETACH);
    }
    int error() const { return error_; }

private:
    Path place_;
    int error_;
};

TEST_F(LibraryOnDiskTest, OnAFileSystemWithoutAttributesTitlesAndTheTrashWorkAllTheSame) {
    const MountedRamfs disk(home / "mount");
    if (disk.error() != 0) GTEST_SKIP() << "a ramfs cannot be mounted: " << std::strerror(disk.error());
    open(home / "mount/talks");
    write("a.m4a", testing::silentMovie(4));
    write("a.txt", "words");
    scan();
    EXPECT_THROW(files.setAttribute(folder / "a.m4a", kTitleAttribute, "x"), base::FileError);
    storage->renameRecording(entry("a"), "Weekly-sync");
    storage->writeMetadata(folder / "Weekly-sync.m4a", "About the week.", kGistAttribute);
    EXPECT_EQ(RecordingMetadata(files).read(folder / "Weekly-sync.m4a", kTitleAttribute), "Weekly sync");
    EXPECT_EQ(files.status(folder / AttributeFile::kName)->mode, 0600U);

    std::filesystem::rename(folder / "Weekly-sync.m4a", folder / "elsewhere.m4a");
    EXPECT_EQ(storage->readMetadata(folder / "elsewhere.m4a", kGistAttribute), "About the week.");
    std::filesystem::rename(folder / "elsewhere.m4a", folder / "Weekly-sync.m4a");
    scan();
    EXPECT_EQ(storage->recordings.get().size(), 1U);

    storage->deleteRecording(entry("Weekly-sync"));
    const auto trashFolder = home / "mount" / (".Trash-" + std::to_string(::geteuid()));
    EXPECT_TRUE(existsIn(trashFolder / "files", "Weekly-sync.m4a"));
    EXPECT_TRUE(existsIn(trashFolder / "files", "Weekly-sync.txt"));
    EXPECT_NE(files.readAll(trashFolder / "info/Weekly-sync.m4a.trashinfo", 1000).find("Path=talks/Weekly-sync.m4a\n"),
              std::string::npos);
    EXPECT_EQ(files.readAll(folder / AttributeFile::kName, 1000).find("About"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::library
