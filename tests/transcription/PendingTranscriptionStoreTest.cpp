#include "transcription/PendingTranscriptionStore.h"

#include <gtest/gtest.h>

#include "base/Log.h"
#include "support/CrashingFiles.h"
#include "support/ManualRuntime.h"

namespace tessivox::transcription {
namespace {

using namespace std::chrono_literals;
using testing::CrashingFiles;
using Path = std::filesystem::path;

const Path kFolder = "/data/Tessivox";
const Path kFile = kFolder / "pending_transcriptions.json";
const Path kRecording = "/path/to/recording.m4a";
constexpr auto kReference = base::WallTime(std::chrono::seconds(978307200));

class PendingTranscriptionStoreTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    CrashingFiles files;

    PendingTranscriptionStoreTest() { time.setWallTime(kReference + 785000000500ms); }
    PendingTranscriptionStore open() { return {files, time, kFolder}; }
    std::string text() { return files.exists(kFile) ? files.readAll(kFile, 1 << 20) : "(none)"; }
    PendingTask task(const std::string& id, base::Duration age = 0s, const Path& path = kRecording) {
        return {path, id, time.wallNow() - age};
    }
};

TEST_F(PendingTranscriptionStoreTest, WritesTheFormatThatItReads) {
    auto store = open();
    EXPECT_EQ(text(), "(none)");
    store.add(task("abc"));
    EXPECT_EQ(text(), R"([{"audioPath":"/path/to/recording.m4a","taskId":"abc","submittedAt":785000000.5}])");
    EXPECT_EQ(open().entry(kRecording), task("abc"));
    store.add(task("new"));
    EXPECT_EQ(store.entries(), std::vector{task("new")});
    store.remove(kRecording);
    EXPECT_EQ(text(), "[]");
}

TEST_F(PendingTranscriptionStoreTest, KeepsEveryPathByteForByte) {
    const Path odd = "/m\xff\xfe/50%25 \"\n.m4a";
    const Path plain = "/100%41/\u00fc.m4a";
    auto store = open();
    store.add(task("odd", 0s, odd));
    store.add(task("plain", 0s, plain));
    EXPECT_NE(text().find(R"("audioPath":"/m%FF%FE/50%2525%20%22%0A.m4a")"), std::string::npos) << text();
    EXPECT_NE(text().find("\"audioPath\":\"/100%41/\u00fc.m4a\""), std::string::npos) << text();
    auto other = open();
    EXPECT_EQ(other.entry(odd), task("odd", 0s, odd));
    EXPECT_EQ(other.entry(plain), task("plain", 0s, plain));
}

TEST_F(PendingTranscriptionStoreTest, DropsEntriesOfADayAtTheStart) {
    files.put(kFile,
              PendingDocument::text({{"/old", task("old", 86401s, "/old")}, {"/new", task("new", 86399s, "/new")}}));
    auto store = open();
    EXPECT_EQ(text(), PendingDocument::text({{"/new", task("new", 86399s, "/new")}}));
    EXPECT_TRUE(store.entry("/new"));
    time.advance(2s);
    EXPECT_FALSE(store.entry("/new"));
    EXPECT_NE(text(), "[]");
}

TEST_F(PendingTranscriptionStoreTest, TakesNothingFromAFileThatIsNotItsOwn) {
    const std::string good = R"({"audioPath":"/a","taskId":"t","submittedAt":785000000})";
    files.put(kFile, "[" + good + R"(,{"audioPath":"/b","taskId":"t","submittedAt":785000000,"more":[1]}])");
    EXPECT_EQ(open().entries().size(), 2U);
    for (const std::string other :
         {"", "{}", "nonsense", "[1]", "[{}]", R"({"audioPath":"/b","taskId":"t","submittedAt":"785000000"})",
          R"({"audioPath":"","taskId":"t","submittedAt":785000000})", R"({"audioPath":"/b","submittedAt":785000000})",
          R"({"audioPath":"/b","taskId":"t","submittedAt":1e300})",
          R"({"audioPath":"/a\u0000b","taskId":"t","submittedAt":785000000})",
          R"({"audioPath":"/a%G1","audioPathIsPercentEncoded":true,"taskId":"t","submittedAt":785000000})",
          R"({"audioPath":"/a%4","audioPathIsPercentEncoded":true,"taskId":"t","submittedAt":785000000})"}) {
        files.put(kFile, other.starts_with("{\"") ? "[" + good + "," + other + "]" : other);
        EXPECT_TRUE(open().entries().empty()) << other;
    }
    EXPECT_FALSE(PendingDocument::parsed(std::string(1 << 20, '[')));
    EXPECT_FALSE(PendingDocument::parsed("[" + std::string(PendingDocument::kMaxSize, ' ') + "]"));
    auto store = open();
    store.add(task("abc"));
    EXPECT_EQ(open().entries(), std::vector{task("abc")});
}

TEST_F(PendingTranscriptionStoreTest, TakesATaskFromTheFileOnlyOnceItsResultIsSafe) {
    auto store = open();
    store.add(task("abc"));
    store.take(kRecording);
    EXPECT_FALSE(store.entry(kRecording));
    store.add(task("other", 0s, "/other"));
    EXPECT_TRUE(open().entry(kRecording));
    store.putBack(kRecording);
    EXPECT_TRUE(store.entry(kRecording));
    store.take(kRecording);
    store.settle(kRecording);
    EXPECT_FALSE(open().entry(kRecording));
    EXPECT_TRUE(open().entry("/other"));
}

TEST_F(PendingTranscriptionStoreTest, LosesNoEntryToAnotherProcess) {
    auto one = open();
    auto two = open();
    one.add(task("a", 0s, "/a"));
    two.add(task("b", 0s, "/b"));
    one.moved("/b", "/c");
    two.remove("/a");
    EXPECT_EQ(one.entries(), std::vector{task("b", 0s, "/c")});
}

TEST_F(PendingTranscriptionStoreTest, KeepsWhatItCannotWriteUntilItCan) {
    auto store = open();
    files.failFrom(files.operationCount() + 1, CrashingFiles::Fault::noSpace);
    store.add(task("abc"));
    EXPECT_TRUE(store.entry(kRecording));
    EXPECT_EQ(text(), "(none)");
    files.heal();
    store.add(task("other", 0s, "/other"));
    EXPECT_EQ(open().entries().size(), 2U);
}

TEST_F(PendingTranscriptionStoreTest, HoldsTheOldTasksOrTheNewOnesAfterACrash) {
    files.put(kFile, PendingDocument::text({{"/a", task("a", 0s, "/a")}}));
    std::uint64_t n = 0;
    for (bool isDone = false; !isDone;) {
        files.put(kFile, PendingDocument::text({{"/a", task("a", 0s, "/a")}}));
        files.haltAt(files.operationCount() + ++n);
        open().add(task("b", 0s, "/b"));
        isDone = !files.isHalted();
        files.crash(CrashingFiles::Unsynced::prefix, n);
        files.heal();
        const auto size = open().entries().size();
        EXPECT_TRUE(isDone ? size == 2 : size == 1 || size == 2) << n;
    }
    EXPECT_GT(n, 4U);
}

}  // namespace
}  // namespace tessivox::transcription
