#include "library/RecordingMetadata.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/CrashingFiles.h"
#include "support/ForwardingFiles.h"
#include "support/MemoryFile.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

const Path kFolder = "/r";
const Path kFile = kFolder / AttributeFile::kName;

class RecordingMetadataTest : public ::testing::Test {
protected:
    testing::CrashingFiles disk;
    testing::FilesWithoutAttributes plain{disk};
    RecordingMetadata metadata{plain};

    void SetUp() override {
        put("a.m4a", 1);
        put("caf\xe9\n.m4a", 2);
    }
    /// A new file, made at that second.
    void put(const std::string& name, int second) {
        disk.setTime(base::WallTime(std::chrono::seconds(second)));
        disk.put(kFolder / name, "sound");
        disk.setTime(base::WallTime(std::chrono::seconds(second + 100)));
    }
    std::optional<std::string> title(const std::string& name) { return metadata.read(kFolder / name, kTitleAttribute); }
    void setTitle(const std::string& name, const std::optional<std::string>& title) {
        metadata.write(kFolder / name, title, kTitleAttribute);
    }
    std::string stored() { return disk.readAll(kFile, 2 * AttributeDocument::kMaxSize); }
};

TEST_F(RecordingMetadataTest, AttributesOfTheFileSystemAreTrimmedUTF8OrAbsent) {
    RecordingMetadata proper(disk);
    const auto url = kFolder / "a.m4a";
    proper.write(url, " Weekly \u2013 sync\n", kTitleAttribute);
    EXPECT_EQ(disk.attribute(url, "user.com.tessivox.title"), "Weekly \u2013 sync");
    proper.write(url, "One line.", kGistAttribute);
    EXPECT_EQ(proper.read(url, kGistAttribute), "One line.");
    EXPECT_EQ(proper.read(url, kTitleAttribute), "Weekly \u2013 sync");
    proper.write(url, " \n", kTitleAttribute);
    EXPECT_EQ(disk.attribute(url, "user.com.tessivox.title"), std::nullopt);
    proper.write(url, "x", kTitleAttribute);
    proper.write(url, std::nullopt, kTitleAttribute);
    EXPECT_EQ(proper.read(url, kTitleAttribute), std::nullopt);
    for (const auto* value : {"", "\t\u00a0", "\xff"}) {
        disk.setAttribute(url, kTitleAttribute, value);
        EXPECT_EQ(proper.read(url, kTitleAttribute), std::nullopt);
    }
    proper.write(kFolder / "missing.m4a", "x", kTitleAttribute);
    EXPECT_EQ(proper.read(kFolder / "missing.m4a", kTitleAttribute), std::nullopt);
    EXPECT_FALSE(disk.exists(kFile));
}

TEST_F(RecordingMetadataTest, WithoutAttributesTheyLiveInAHiddenFileThatOtherProcessesSee) {
    setTitle("a.m4a", " Weekly ");
    metadata.write(kFolder / "a.m4a", "One line.", kGistAttribute);
    setTitle("caf\xe9\n.m4a", "Caf\u00e9");
    RecordingMetadata other(plain);
    EXPECT_EQ(other.read(kFolder / "a.m4a", kTitleAttribute), "Weekly");
    EXPECT_EQ(other.read(kFolder / "caf\xe9\n.m4a", kTitleAttribute), "Caf\u00e9");
    other.write(kFolder / "a.m4a", "Monthly", kTitleAttribute);
    EXPECT_EQ(title("a.m4a"), "Monthly");
    EXPECT_EQ(metadata.read(kFolder / "a.m4a", kGistAttribute), "One line.");
    EXPECT_EQ(disk.status(kFile)->mode, 0600U);
    for (const auto& name : disk.list(kFolder)) EXPECT_TRUE(name.string().ends_with(".m4a") || name.string()[0] == '.');
    metadata.write(kFolder / "a.m4a", std::nullopt, kGistAttribute);
    setTitle("a.m4a", "");
    setTitle("caf\xe9\n.m4a", "");
    EXPECT_EQ(stored(), "{\n \"files\": {}\n}\n");
}

/// Locks fail there with that error.
class FilesWithoutLocks final : public testing::ForwardingFiles {
public:
    FilesWithoutLocks(base::Files& files, int code) : ForwardingFiles(files), code_(code) {}
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override {
        if (path.extension() != ".lock") return ForwardingFiles::open(path, access);
        return std::make_unique<Unlockable>(lockFile_, code_);
    }

private:
    struct Unlockable final : testing::MemoryFile {
        int code;
        Unlockable(testing::MemoryDisk& disk, int error) : MemoryFile(disk), code(error) {}
        void lock() override { throw base::FileError(code, "There are no locks here."); }
    };
    int code_;
    testing::MemoryDisk lockFile_;
};

TEST_F(RecordingMetadataTest, OnADiskWithoutLocksTheyAreKeptAllTheSameAndOtherFailuresOfALockAreTold) {
    for (const auto code : {ENOLCK, ENOTSUP}) {
        FilesWithoutLocks unlocked(plain, code);
        RecordingMetadata(unlocked).write(kFolder / "a.m4a", std::to_string(code), kTitleAttribute);
        EXPECT_EQ(title("a.m4a"), std::to_string(code));
    }
    FilesWithoutLocks broken(plain, EIO);
    RecordingMetadata(broken).write(kFolder / "a.m4a", "lost", kTitleAttribute);
    EXPECT_EQ(title("a.m4a"), std::to_string(ENOTSUP));
}

TEST_F(RecordingMetadataTest, EntriesFollowTheirFileAndNotItsName) {
    setTitle("a.m4a", "Weekly");
    disk.move(kFolder / "a.m4a", kFolder / "b.m4a");
    EXPECT_EQ(title("b.m4a"), "Weekly") << "renamed by another program, or before a crash";
    put("a.m4a", 50);
    EXPECT_EQ(title("a.m4a"), std::nullopt) << "another file of the old name";
    metadata.moved(kFolder / "a.m4a", kFolder / "b.m4a");
    EXPECT_EQ(title("b.m4a"), "Weekly");
    EXPECT_NE(stored().find("\"b.m4a\""), std::string::npos);
    EXPECT_EQ(stored().find("\"a.m4a\""), std::string::npos);

    const auto identity = metadata.identityOf(kFolder / "b.m4a");
    disk.remove(kFolder / "b.m4a");
    metadata.forget(kFolder / "b.m4a", identity);
    EXPECT_EQ(stored().find("Weekly"), std::string::npos);
}

TEST_F(RecordingMetadataTest, ATouchedFileAndOneNumberedAnewKeepTheirEntries) {
    setTitle("a.m4a", "Weekly");
    const auto status = *disk.status(kFolder / "a.m4a");
    const FileIdentity renumbered{status.inode + 100, status.birth}, touched{status.inode, base::WallTime()};
    for (const auto& identity : {renumbered, touched}) {
        const auto document = AttributeDocument::parsed(stored()).document;
        EXPECT_EQ(document.value("a.m4a", identity, kTitleAttribute), "Weekly");
        EXPECT_EQ(document.value("b.m4a", identity, kTitleAttribute), std::nullopt);
    }
}

TEST_F(RecordingMetadataTest, ADamagedFileReadsAsEmptyAndIsKeptAsideAtTheNextChange) {
    const std::string tail = "], \"birth\": -1, \"attributes\": {}}}}";
    for (const std::string& damaged :
         {std::string(), std::string("{\"files\": {\"a"), std::string("[]"), "{\"files\":" + std::string(100000, '['),
          std::string(AttributeDocument::kMaxSize + 1, ' '),
          std::string("{\"files\": {\"a.m4a\": {\"inode\": [1") + tail}) {
        disk.put(kFile, damaged);
        EXPECT_EQ(title("a.m4a"), std::nullopt);
        EXPECT_EQ(stored(), damaged) << "reading changes nothing";
        setTitle("a.m4a", "Weekly");
        EXPECT_EQ(title("a.m4a"), "Weekly");
    }
    EXPECT_EQ(disk.readAll(kFolder / ".tessivox-attributes.json.damaged-2", 100), "{\"files\": {\"a");
    EXPECT_TRUE(disk.exists(kFolder / ".tessivox-attributes.json.damaged-6"));
}

TEST_F(RecordingMetadataTest, SoundEntriesSurviveBesideADamagedOne) {
    setTitle("a.m4a", "Weekly");
    auto text = stored();
    text.insert(text.find("\"a.m4a\""), "\"other.m4a\": 5, ");
    disk.put(kFile, text);
    setTitle("caf\xe9\n.m4a", "Caf\u00e9");
    EXPECT_EQ(title("a.m4a"), "Weekly");
    EXPECT_EQ(disk.readAll(kFolder / ".tessivox-attributes.json.damaged-1", 10000), text);
}

TEST_F(RecordingMetadataTest, TheFileStaysBoundedByDroppingWhatIsGoneFirst) {
    const std::string large(AttributeDocument::kMaxSize / 2, 'x');
    setTitle("a.m4a", "Weekly");
    put("gone.m4a", 3);
    setTitle("gone.m4a", large);
    disk.remove(kFolder / "gone.m4a");
    setTitle("caf\xe9\n.m4a", large);
    EXPECT_EQ(title("caf\xe9\n.m4a"), large);
    EXPECT_EQ(title("a.m4a"), "Weekly");
    setTitle("a.m4a", large);
    EXPECT_EQ(title("a.m4a"), "Weekly") << "there is no room, and nothing is lost";
    EXPECT_LT(disk.status(kFile)->size, AttributeDocument::kMaxSize);
}

}  // namespace
}  // namespace tessivox::library
